/*
 * The bitmap: parameters, and where in the image a coordinate leads.
 */
#pragma once

#include "declaration.h"

namespace orl {

// ---- geometry

/* The part of the image that fills the unit square (crop), or the part of the unit square that shows the
   image (place). The origin is the upper left corner, `v` counts downwards from the upper edge. */
struct Placement {
    miScalar u, v;
    miScalar width, height;
    bool on;
    bool place;
};

/* A box in the image: the middle of the part that lies in the image, how much of the box that is, and the
   edges of the whole box, so that the image is as soft at its edges as elsewhere. */
struct Footprint {
    miScalar u, v, du, dv;
    miScalar coverage;
};

/* The box with edges du and dv about (u, v), carried into the image. An image that tiles has no end. */
Footprint image_footprint(const Placement& placement, miScalar u, miScalar v, miScalar du, miScalar dv);

// ---- parameters

struct BitmapParams {
    miScalar cropU; // 1
    miScalar cropV;
    miScalar cropWidth;
    miScalar cropHeight;
    miBoolean cropOn;
    miBoolean cropPlace;
    miScalar jitterU;
    miScalar jitterV;
    miInteger filterType;
    miInteger field_10;
    miBoolean alphaAsGray;
    miInteger field_12;
    miBoolean premultipliedOff;
    miTag image;
    miTag uvGenerator;
    miTag output;
    miInteger field_17;
    miInteger field_18;
    miInteger field_19;
    miBoolean perParticleImage;
    miInteger field_21;
    miInteger imageIndex;
    miInteger field_23;
    miInteger field_24;
    miInteger field_25;
    decl::Array<miTag> imageList; // 26 to 28
    miInteger field_29;
    miBoolean hostImages;
    miInteger hostImageIndex;
    miInteger field_32;
    miInteger field_33;
    miInteger field_34;
    miInteger field_35;
    miInteger field_36;
    miInteger field_37;
    miInteger field_38;
    miInteger field_39;
    decl::Array<miTag> hostImageList; // 40 to 42
    miInteger field_43;
    miInteger field_44;
    miInteger field_45;
    miInteger field_46;
    miInteger field_47;
    miScalar gamma; // 48
};

// The host fills the block by numbers of four-byte fields, an array being three of them.
static_assert(offsetof(BitmapParams, filterType) == 8 * 4 && offsetof(BitmapParams, imageList) == 25 * 4);
static_assert(offsetof(BitmapParams, hostImages) == 29 * 4 && offsetof(BitmapParams, gamma) == 47 * 4);

/* Of `filterType`; every other number filters. */
inline constexpr miInteger no_filtering = 2;

namespace bitmap_table {

using P = BitmapParams;
using decl::host_field;

inline constexpr auto fields = decl::fields<P>(
    decl::scalar(
        &P::cropU, "cropU", 0, decl::any, "image widths",
        "left edge of the part of the image that is shown, or of the place for the image in each tile"),
    decl::scalar(&P::cropV, "cropV", 0, decl::any, "image heights", "its upper edge, from the top"),
    decl::scalar(&P::cropWidth, "cropWidth", 1, decl::unit_interval, "image widths",
                 "its width; nothing shows at 0"),
    decl::scalar(&P::cropHeight, "cropHeight", 1, decl::unit_interval, "image heights",
                 "its height; nothing shows at 0"),
    decl::boolean(&P::cropOn, "cropOn", false, "crop or place the image; read when rendering starts, too"),
    decl::boolean(&P::cropPlace, "cropPlace", false,
                  "place the whole image in a part of each tile, rather than show a part of it everywhere"),
    decl::scalar(&P::jitterU, "jitterU", 0, decl::not_negative, "tiles",
                 "moves the placed image to the right by up to that much, in each tile differently"),
    decl::scalar(&P::jitterV, "jitterV", 0, decl::not_negative, "tiles", "the same downwards"),
    decl::integer(&P::filterType, "filterType", 0, decl::any,
                  "2: no filtering, other numbers: averaged over the footprint"),
    host_field(&P::field_10, "field_10"),
    decl::boolean(&P::alphaAsGray, "alphaAsGray", false, "show the image's alpha in place of its colour"),
    host_field(&P::field_12, "field_12"),
    decl::boolean(&P::premultipliedOff, "premultipliedOff", false,
                  "leave the colour as it is rather than multiply it by its alpha"),
    decl::element(&P::image, miTYPE_COLOR_TEX, "image", "the image, while there is no list"),
    decl::element(&P::uvGenerator, miTYPE_SHADER, "uvGenerator", "where the coordinates come from"),
    decl::element(&P::output, miTYPE_SHADER, "output", "output stage; none leaves values as they are"),
    host_field(&P::field_17, "field_17"), host_field(&P::field_18, "field_18"),
    host_field(&P::field_19, "field_19"),
    decl::boolean(&P::perParticleImage, "perParticleImage", false,
                  "objects with particle data choose from the list by the particle"),
    host_field(&P::field_21, "field_21"),
    decl::integer(&P::imageIndex, "imageIndex", 0, decl::any,
                  "image of the list, from 0; goes round beyond its end"),
    host_field(&P::field_23, "field_23"), host_field(&P::field_24, "field_24"),
    host_field(&P::field_25, "field_25"),
    decl::array(&P::imageList, miTYPE_COLOR_TEX, "imageList",
                "images to choose from, in place of image; an empty element shows nothing"),
    host_field(&P::field_29, "field_29"),
    decl::boolean(&P::hostImages, "hostImages", false,
                  "choose from hostImageList, which the host fills for each frame, while it has elements"),
    decl::integer(&P::hostImageIndex, "hostImageIndex", 0, decl::any,
                  "image of hostImageList, from 0; goes round beyond its end"),
    host_field(&P::field_32, "field_32"), host_field(&P::field_33, "field_33"),
    host_field(&P::field_34, "field_34"), host_field(&P::field_35, "field_35"),
    host_field(&P::field_36, "field_36"), host_field(&P::field_37, "field_37"),
    host_field(&P::field_38, "field_38"), host_field(&P::field_39, "field_39"),
    decl::array(&P::hostImageList, miTYPE_COLOR_TEX, "hostImageList", "the host's images of the frame"),
    host_field(&P::field_43, "field_43"), host_field(&P::field_44, "field_44"),
    host_field(&P::field_45, "field_45"), host_field(&P::field_46, "field_46"),
    host_field(&P::field_47, "field_47"),
    decl::scalar(&P::gamma, "gamma", 0, decl::any, "",
                 "gamma of the image's colours, for images with 8 bits; 0 or less: that of the options"));

} // namespace bitmap_table

inline constexpr decl::Shader tex_bitmap[] = {
    {"orl_Bitmap", miTYPE_COLOR, 4, true, true, decl::apply(miSHADER_TEXTURE), bitmap_table::fields,
     "Texture map: an image, or one of a list of images."},
};

} // namespace orl

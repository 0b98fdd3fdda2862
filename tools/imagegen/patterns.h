// Images that are given by a formula. A point of an image is (x, y), from (0, 0) in the lower left corner to
// (1, 1); colours are from 0 to 1 and go into 8-bit files as they are.
#pragma once

namespace imagegen {

struct Color {
    double r, g, b;
};

// 8 by 8 cells, from black to red towards the right and to green upwards, with a letter F in each, which has
// no symmetry. The lower left cell's ground is white.
Color chart(double x, double y);

// One large letter F, bright on dark, whose edges fall off over 0.06: a relief when it is taken for a height.
Color relief(double x, double y);

// 0.5 + 0.5 cos(k r^2): rings that get narrower outwards. Where they meet the edges of an image of `size`
// texels they are two texels wide, the finest that texels can show; the corners are grey.
Color zone_plate(double x, double y, double size);

// Of filter levels from 0: red, yellow, green, cyan, blue, magenta, white, grey and black. Between neighbours
// up to white one component alone changes.
Color level_color(int level);

struct Direction {
    double x, y, z; // of length 1; z points up
};

// The world around: sky above ground, parallels and meridians every 30 degrees, and discs of 12 degrees
// radius around the axes: +x red, -x cyan, +y green, -y magenta, +z blue, -z yellow.
Color world(Direction direction);

// Where the points of an image lie when it surrounds the world in the ways of environment maps. In a
// spherical image x is the longitude and y the latitude. A cylindrical one has, up to 45 degrees, the height
// above the horizon and beyond it its inverse. Shrink-wrap has +z in the middle and -z on a circle that
// touches the edges.
Direction spherical(double x, double y);
Direction cylindrical(double x, double y);
Direction shrink_wrap(double x, double y);

} // namespace imagegen

// Image functions of the interface: single pixels, sizes and levels, colour spaces, light maps.
#include "api/api.h"
#include "image/grading.h"
#include "image/texture.h"
#include "kit/color.h"
#include "kit/image.h"
#include "render/renderer.h"

namespace {

// As the options of the frame say, or as they are without any.
stage::Grading grading() {
    const stage::Renderer* renderer = stage::current_renderer();
    return renderer ? stage::grading_of(*renderer->world().options) : stage::Grading{};
}

} // namespace

STAGE_API void mi_img_get_color(miImg_image* image, miColor* color, int x, int y) {
    if (color)
        *color = stage::graded_color(image, x, y, grading());
}

STAGE_API void mi_img_put_color(miImg_image* image, miColor* color, int x, int y) {
    if (color)
        stage::put_graded_color(image, *color, x, y, grading());
}

STAGE_API int mi_img_get_width(miImg_image* image) {
    return image ? image->width : 0;
}

STAGE_API int mi_img_get_height(miImg_image* image) {
    return image ? image->height : 0;
}

STAGE_API miImg_image* mi_img_pyramid_get_level(miImg_image* image, int level) {
    return stage::image_level(image, level);
}

STAGE_API void mi_colorprofile_ciexyz_to_render(miColor* rgb, miColor* xyz) {
    if (rgb && xyz)
        *rgb = stage::color_of_ciexyz(*xyz);
}

// The handle is the texture's element; null when it cannot be written.
STAGE_API miImg_image* mi_lightmap_edit(void** handle, miTag texture) {
    if (!handle)
        return nullptr;
    stage::Scene* scene = stage::current_scene();
    stage::Element* element = scene ? scene->database.find(texture) : nullptr;
    miImg_image* image = element ? stage::edit_texture(*element) : nullptr;
    *handle = image ? element : nullptr;
    return image;
}

// Of several processes one writes the file.
STAGE_API void mi_lightmap_edit_end(void* handle) {
    const stage::Renderer* renderer = stage::current_renderer();
    if (handle)
        stage::finish_texture(*static_cast<stage::Element*>(handle), !renderer || renderer->leads());
}

// Images that textures look up: pixels from a file or from the scene, as the interface's image record, with
// smaller versions for lookups that cover many pixels.
#pragma once

#include <atomic>
#include <cstddef>
#include <optional>
#include <string>

#include "kit/image.h"
#include "scene/color_profile.h"
#include "scene/scene.h"

namespace stage {

class Image {
public:
    // Pixels of a file: 8 and 16 bit stay what they are, everything else becomes float. Rows run from the
    // bottom up. With a profile all become float colours of the render space, so that what lookups average is
    // light. Throws std::runtime_error with the reason when it cannot be read.
    static std::unique_ptr<Image> read(const std::string& path, bool pyramid,
                                       const ColorProfile* profile = nullptr);
    // Pixels that the scene itself has; the record is used as it lies, or copied for a pyramid or a profile.
    static std::unique_ptr<Image> wrap(miImg_image* record, std::size_t size, bool pyramid,
                                       const ColorProfile* profile = nullptr);
    // A black pixel in place of an image that cannot be had.
    static std::unique_ptr<Image> missing();

    [[nodiscard]] bool valid() const { return valid_; }
    [[nodiscard]] miImg_image* record() { return record_; }
    [[nodiscard]] const miImg_image* record() const { return record_; }
    [[nodiscard]] std::size_t size() const { return size_; } // bytes of the record with its pixels
    [[nodiscard]] int levels() const { return record_->dirsize > 0 ? record_->dirsize : 1; }

    // The colour at (u, v), of which only the fraction counts: (0, 0) is the lower left corner of the image,
    // pixels have their centres at half steps, and the image repeats across its borders. Bilinear; between
    // the two nearest levels for a broken level.
    [[nodiscard]] miColor lookup(float u, float v, float level = 0.0f) const;

    // An edit makes all pixels 0 and lets nobody else begin one (false) until it ends, which makes the
    // coarser levels anew.
    bool begin_edit();
    bool end_edit(); // false when none has begun

private:
    Image() = default;
    explicit Image(ImageMemory memory, std::size_t size);
    static miColor bilinear(const miImg_image* image, float u, float v);

    std::optional<ImageMemory> memory_; // nothing when the scene holds the pixels
    miImg_image* record_ = nullptr;
    std::size_t size_ = 0;
    bool valid_ = true;
    std::atomic<bool> edited_{false};
};

// The image of a miSCENE_IMAGE element, read at the first use. What cannot be read is reported once, with the
// element's name and place, and is an image that is not valid from then on. Thread-safe. A writable one
// begins with the pixels of its file, if that is there and has the texture's size, else black.
Image& image_of(Element& element);

// Opens a writable texture for light maps, black; null, and a message with its place, when it is none, is
// missing, or is open already. Finishing it writes its file, if it has one and `write` says so.
miImg_image* edit_texture(Element& element);
void finish_texture(Element& element, bool write);

} // namespace stage

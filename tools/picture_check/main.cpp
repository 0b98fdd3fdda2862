// Judges a rendered picture: against values worked out by hand, and against a reference picture.
//
//   picture_check PICTURE.exr [--expect FILE] [--reference FILE.exr] [--mirrored] [--within LIMIT]
//       [--strays SHARE LIMIT] [--rms X Y WIDTH HEIGHT LEAST MOST]... [--output FOLDER] [--save FILE.exr]
//       [--sum LAYER...] [--noise FILE.exr] [--more PICTURE.exr... --save-noise FILE.exr]
//
// --mirrored demands that the picture is its own mirror image, left and right.
// --within demands that no pixel is off the reference or mirror image by more.
// --strays demands that at most that share of the pixels is off the reference by more than the limit, which
// also counts relatively: single samples may have fallen on the other side of an edge.
// --rms demands, in place of agreement, that the root mean square of the difference from the reference within
// a rectangle, which begins at (X, Y) from the lower left, lies between two numbers.
// --sum demands that the layers' colours add up to the picture's.
// --save stores the picture as a reference, in half floats: only after looking at it.
// --noise judges a picture of random samples: block for block against the mean and variance of others.
// --save-noise stores mean and variance of the picture and --more of it, rendered with other seeds (at least
// 16 together): only after looking at them.
// When it does not agree with the reference, new.png, reference.png and difference.png are left in FOLDER.
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include <CLI/CLI.hpp>
#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

namespace {

using namespace OIIO;
namespace fs = std::filesystem;

// The four-number rule.
struct Rule {
    float pixel_absolute = 0.004f; // a pixel fails above this
    float pixel_relative = 0.001f; // and this
    double share_of_pixels = 0.0002;
    float largest = 0.01f; // no pixel may be off by more (and by more than the relative limit)
};

// All channels as floats. Integers are read as parts of the largest one; they get their values back.
ImageBuf load(const std::string& path) {
    ImageBuf image(path);
    if (!image.read(0, 0, true, TypeFloat))
        throw std::runtime_error(path + ": " + image.geterror());
    for (int c = 0; c < image.nchannels(); ++c) {
        if (image.nativespec().channelformat(c) != TypeUInt32)
            continue;
        for (ImageBuf::Iterator<float> pixel(image); !pixel.done(); ++pixel)
            pixel[c] = std::round(pixel[c] * 4294967295.0f);
    }
    return image;
}

void save_reference(const ImageBuf& picture, const std::string& path) {
    ImageBuf reference(picture);
    reference.specmod().channelformats.clear();
    reference.specmod().attribute("compression", "zip");
    if (!reference.write(path, TypeHalf))
        throw std::runtime_error(path + ": " + reference.geterror());
}

std::vector<float> pixels_of(const ImageBuf& image) {
    std::vector<float> values(image.spec().image_pixels() * static_cast<std::size_t>(image.nchannels()));
    image.get_pixels(image.roi(), TypeFloat, values.data());
    return values;
}

// Picture, reference and ten times their difference as they are on a display, each pixel enlarged to 4 by 4,
// for tools/picture-report.
void write_evidence(const fs::path& folder, const ImageBuf& picture, const ImageBuf& reference) {
    fs::create_directories(folder);
    const int colors = std::min(3, picture.nchannels());
    const ImageBuf difference = ImageBufAlgo::mul(ImageBufAlgo::absdiff(picture, reference), 10.0f);
    for (const auto& [name, image] :
         {std::pair{"new", &picture}, {"reference", &reference}, {"difference", &difference}}) {
        constexpr int zoom = 4;
        const ImageSpec& spec = image->spec();
        ImageBuf shown(ImageSpec(spec.width * zoom, spec.height * zoom, colors, TypeFloat));
        for (ImageBuf::Iterator<float> out(shown); !out.done(); ++out)
            for (int c = 0; c < colors; ++c)
                out[c] = image->getchannel(out.x() / zoom, out.y() / zoom, 0, c);
        ImageBufAlgo::pow(shown, shown, 1 / 2.2f);
        shown.write((folder / name).string() + ".png", TypeUInt8);
    }
}

bool agrees(const ImageBuf& picture, const ImageBuf& reference, const Rule& rule) {
    if (picture.spec().width != reference.spec().width || picture.spec().height != reference.spec().height ||
        picture.spec().channelnames != reference.spec().channelnames) {
        std::cerr << "size or channels differ from the reference's\n";
        return false;
    }
    const std::vector<float> a = pixels_of(picture), b = pixels_of(reference);
    const auto n = static_cast<std::size_t>(picture.nchannels());
    std::size_t failing = 0, worst_at = 0;
    float worst = 0;
    for (std::size_t pixel = 0; pixel < a.size(); pixel += n) {
        bool fails = false;
        for (std::size_t i = pixel; i < pixel + n; ++i) {
            const float off = std::abs(a[i] - b[i]);
            if (off <= rule.pixel_absolute ||
                off <= rule.pixel_relative * std::max(std::abs(a[i]), std::abs(b[i])))
                continue;
            fails = true;
            if (!(off <= worst)) // also takes a NaN for the worst
                worst = off, worst_at = i;
        }
        failing += fails;
    }
    const std::size_t count = a.size() / n;
    if (failing == 0)
        return true;
    const auto x = (worst_at / n) % static_cast<std::size_t>(picture.spec().width);
    const auto y = (worst_at / n) / static_cast<std::size_t>(picture.spec().width);
    std::cerr << failing << " of " << count << " pixels differ; the most by " << worst << " in "
              << picture.spec().channelnames[worst_at % n] << " at column " << x << ", row " << y
              << " from the top\n";
    return static_cast<double>(failing) <= rule.share_of_pixels * static_cast<double>(count) &&
           worst <= rule.largest;
}

struct Rectangle {
    int x, y, width, height; // from the lower left
};

double rms_difference(const ImageBuf& picture, const ImageBuf& reference, const Rectangle& r) {
    const int top = picture.spec().height - r.y - r.height;
    const ROI roi(r.x, r.x + r.width, top, top + r.height, 0, 1, 0, 3);
    return ImageBufAlgo::compare(picture, reference, 0, 0, roi).rms_error;
}

// Six numbers for each rectangle.
bool as_far_off(const ImageBuf& picture, const ImageBuf& reference, const std::vector<double>& limits) {
    bool good = true;
    for (auto i = limits.begin(); i != limits.end(); i += 6) {
        const auto whole = [i](int k) { return static_cast<int>(i[k]); };
        const double found = rms_difference(picture, reference, {whole(0), whole(1), whole(2), whole(3)});
        std::cout << "off by " << found << " from (" << i[0] << ", " << i[1] << "), expected " << i[4]
                  << " to " << i[5] << '\n';
        good = found >= i[4] && found <= i[5] && good;
    }
    return good;
}

// Lines of "x y channel value tolerance", with raster positions from the lower left; # starts a comment.
bool as_expected(const ImageBuf& picture, const std::string& path) {
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    bool good = true;
    int checked = 0;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        int x = 0, y = 0;
        std::string channel;
        float value = 0, tolerance = 0;
        if (!(words >> x))
            continue;
        if (!(words >> y >> channel >> value >> tolerance))
            throw std::runtime_error(path + ": not \"x y channel value tolerance\": " + line);
        const int index = picture.spec().channelindex(channel);
        if (index < 0)
            throw std::runtime_error("the picture has no channel " + channel);
        const float found = picture.getchannel(x, picture.spec().height - 1 - y, 0, index);
        ++checked;
        if (std::abs(found - value) <= tolerance)
            continue;
        good = false;
        std::cerr << "(" << x << ", " << y << ") " << channel << ": " << found << ", expected " << value
                  << " +- " << tolerance << '\n';
    }
    if (checked == 0)
        throw std::runtime_error(path + " expects nothing");
    return good;
}

// Colours of the layers against those of the picture itself; a NaN is a difference.
bool adds_up(const ImageBuf& picture, const std::vector<std::string>& layers) {
    constexpr float tolerance = 1e-4f; // some roundings of values below 10
    for (const char* color : {"R", "G", "B"}) {
        std::vector<int> parts;
        for (const std::string& layer : layers)
            if (parts.emplace_back(picture.spec().channelindex(layer + "." + color)) < 0)
                throw std::runtime_error("the picture has no layer " + layer);
        const int whole = picture.spec().channelindex(color);
        for (ImageBuf::ConstIterator<float> pixel(picture); !pixel.done(); ++pixel) {
            float sum = 0;
            for (const int part : parts)
                sum += pixel[part];
            if (std::abs(sum - pixel[whole]) <= tolerance)
                continue;
            std::cerr << color << " at column " << pixel.x() << ", row " << pixel.y()
                      << " from the top: " << pixel[whole] << ", but the layers add up to " << sum << '\n';
            return false;
        }
    }
    return true;
}

// ---- pictures of random samples

constexpr int block = 8; // pixels of an edge
constexpr const char* colors[] = {"R", "G", "B"};

// Mean colours of blocks, row by row; what is left over at the right and below is left out.
std::vector<double> block_means(const ImageBuf& picture) {
    const int columns = picture.spec().width / block, rows = picture.spec().height / block;
    std::vector<double> means(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows) * 3);
    for (ImageBuf::ConstIterator<float> pixel(picture); !pixel.done(); ++pixel) {
        const int column = pixel.x() / block, row = pixel.y() / block;
        if (column >= columns || row >= rows)
            continue;
        for (int c = 0; c < 3; ++c)
            means[static_cast<std::size_t>((row * columns + column) * 3 + c)] +=
                double{pixel[picture.spec().channelindex(colors[c])]} / (block * block);
    }
    return means;
}

// One pixel for each block: mean, variance of a single picture.
void save_noise(const std::vector<ImageBuf>& pictures, const std::string& path) {
    if (pictures.size() < 16)
        throw std::runtime_error("mean and variance take at least 16 pictures");
    ImageSpec spec(pictures[0].spec().width / block, pictures[0].spec().height / block, 6, TypeFloat);
    spec.channelnames = {"R", "G", "B", "variance.R", "variance.G", "variance.B"};
    std::vector<std::vector<double>> means;
    for (const ImageBuf& picture : pictures)
        means.push_back(block_means(picture));
    const auto count = static_cast<double>(pictures.size());
    std::vector<float> pixels(means[0].size() * 2);
    for (std::size_t i = 0; i < means[0].size(); ++i) {
        double sum = 0, squares = 0;
        for (const auto& m : means)
            sum += m[i];
        for (const auto& m : means)
            squares += (m[i] - sum / count) * (m[i] - sum / count);
        pixels[i / 3 * 6 + i % 3] = static_cast<float>(sum / count);
        pixels[i / 3 * 6 + 3 + i % 3] = static_cast<float>(squares / (count - 1));
    }
    ImageBuf noise(spec);
    noise.set_pixels(noise.roi(), TypeFloat, pixels.data());
    if (!noise.write(path))
        throw std::runtime_error(path + ": " + noise.geterror());
}

// By chance the mean square of all deviations is about 1, and of those above 4 there are few: 0.12 per cent
// with a variance from 16 pictures. Deviations count from the roundings of half floats on.
bool is_as_noisy(const ImageBuf& picture, const ImageBuf& noise) {
    const std::vector<double> means = block_means(picture);
    const std::vector<float> expected = pixels_of(noise);
    if (expected.size() != 2 * means.size())
        throw std::runtime_error("the reference is of a picture of another size");
    std::size_t outside = 0;
    double squares = 0;
    for (std::size_t i = 0; i < means.size(); ++i) {
        const double mean = double{expected[i / 3 * 6 + i % 3]};
        const double deviation = std::sqrt(double{expected[i / 3 * 6 + 3 + i % 3]}) + 5e-4 * (1 + mean);
        const double off = (means[i] - mean) / deviation;
        outside += !(std::abs(off) <= 4);
        squares += off * off;
    }
    const auto count = static_cast<double>(means.size());
    std::cout << "mean square of the deviations " << squares / count << ", " << outside << " of "
              << means.size() << " above 4\n";
    return squares / count < 1.5 && static_cast<double>(outside) <= 0.005 * count;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Judges a rendered picture."};
    std::string picture_path, reference_path, expect_path, save_path, output = ".";
    std::vector<std::string> layers;
    bool mirrored = false;
    float within = 0;
    std::vector<double> rms;
    std::string noise_path, save_noise_path;
    std::vector<std::string> more;
    app.add_option("--noise", noise_path, "Mean and variance to agree with");
    app.add_option("--more", more, "The same picture with other seeds");
    app.add_option("--save-noise", save_noise_path, "Store mean and variance of all these pictures");
    app.add_option("picture", picture_path)->required();
    app.add_option("--expect", expect_path, "File of values worked out by hand");
    app.add_option("--reference", reference_path, "Picture to agree with");
    app.add_flag("--mirrored", mirrored, "The picture is its own mirror image");
    std::vector<float> strays;
    app.add_option("--strays", strays, "Share of pixels that may be off by more than a limit")->expected(2);
    CLI::Option* limit = app.add_option("--within", within, "No pixel may be off by more");
    app.add_option("--rms", rms, "Root mean square difference from the reference in a rectangle")
        ->type_size(6);
    app.add_option("--sum", layers, "Layers that add up to the picture");
    app.add_option("--output", output, "Folder for the evidence of a failure");
    app.add_option("--save", save_path, "Store the picture as a reference");
    CLI11_PARSE(app, argc, argv);
    try {
        const ImageBuf picture = load(picture_path);
        bool good = true;
        if (!expect_path.empty())
            good = as_expected(picture, expect_path) && good;
        if (!layers.empty())
            good = adds_up(picture, layers) && good;
        const auto compare = [&](const ImageBuf& reference) {
            const Rule rule = !strays.empty()  ? Rule{strays[1], strays[1], strays[0], INFINITY}
                              : limit->empty() ? Rule{}
                                               : Rule{within, 0, 0, 0};
            if (agrees(picture, reference, rule))
                return;
            good = false;
            write_evidence(output, picture, reference);
            std::cerr << "see " << (fs::path(output) / "difference.png").string()
                      << ", or tools/picture-report\n";
        };
        if (!rms.empty())
            good = as_far_off(picture, load(reference_path), rms) && good;
        else if (!reference_path.empty())
            compare(load(reference_path));
        if (mirrored)
            compare(ImageBufAlgo::flop(picture));
        if (!noise_path.empty())
            good = is_as_noisy(picture, load(noise_path)) && good;
        if (!save_noise_path.empty()) {
            std::vector<ImageBuf> pictures{picture};
            for (const std::string& path : more)
                pictures.push_back(load(path));
            save_noise(pictures, save_noise_path);
        }
        if (!save_path.empty())
            save_reference(picture, save_path);
        return good ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& error) {
        std::cerr << "picture_check: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}

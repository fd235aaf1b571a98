// Picture files for the lumi command: decoding and encoding through stb,
// PPM/PGM written by hand, and the channel conversions the command needs.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "lumi_cli.h"

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STBI_FAILURE_USERMSG
#include <stb/stb_image.h>
#include <stb/stb_image_write.h>

namespace cli {

namespace {

std::string extension(const std::string &path)
{
    size_t dot = path.find_last_of('.');
    size_t slash = path.find_last_of('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return "";
    std::string ext = path.substr(dot + 1);
    for (char &c : ext)
        c = (char)tolower((unsigned char)c);
    return ext;
}

void append_bytes(void *context, void *data, int size)
{
    std::vector<uint8_t> *out = static_cast<std::vector<uint8_t> *>(context);
    const uint8_t *p = static_cast<const uint8_t *>(data);
    out->insert(out->end(), p, p + size);
}

// Writes the whole encoded file, or removes what was written.
bool write_file(const std::string &path, const std::vector<uint8_t> &bytes, std::string *err)
{
    FILE *f = fopen(path.c_str(), "wb");
    if (!f) {
        *err = "cannot write " + path + ": " + strerror(errno);
        return false;
    }
    bool ok = fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    ok = (fclose(f) == 0) && ok;
    if (!ok) {
        remove(path.c_str());
        *err = "cannot write " + path;
    }
    return ok;
}

} // namespace

bool make_image(Image *img, int width, int height, int channels, std::string *err)
{
    if (width < 1 || height < 1 || (double)width * height * channels > (double)kMaxImageBytes) {
        *err = "an image of " + std::to_string(width) + "x" + std::to_string(height) +
               " is out of range";
        return false;
    }
    img->width = width;
    img->height = height;
    img->channels = channels;
    img->pixels.assign((size_t)width * height * channels, 0);
    return true;
}

int file_channels(const std::string &path)
{
    int w, h, comp;
    if (!stbi_info(path.c_str(), &w, &h, &comp))
        return 0;
    return comp <= 2 ? 1 : 3;
}

bool load_image(const std::string &path, int channels, Image *img, std::string *err)
{
    FILE *f = fopen(path.c_str(), "rb");
    if (!f) {
        *err = "cannot read " + path + ": " + strerror(errno);
        return false;
    }
    int w, h, comp;
    uint8_t *data = stbi_load_from_file(f, &w, &h, &comp, channels);
    fclose(f);
    if (!data) {
        *err = "cannot decode " + path + ": " + stbi_failure_reason();
        return false;
    }
    bool ok = make_image(img, w, h, channels, err);
    if (ok)
        memcpy(img->pixels.data(), data, img->pixels.size());
    stbi_image_free(data);
    return ok;
}

bool supported_output(const std::string &path)
{
    std::string ext = extension(path);
    return ext == "png" || ext == "jpg" || ext == "jpeg" || ext == "ppm" || ext == "pgm";
}

bool save_image(const std::string &path, const Image &img, std::string *err)
{
    std::string ext = extension(path);
    std::vector<uint8_t> bytes;
    int ok = 1;
    if (ext == "png") {
        ok = stbi_write_png_to_func(append_bytes, &bytes, img.width, img.height, img.channels,
                                    img.pixels.data(), img.step());
    } else if (ext == "jpg" || ext == "jpeg") {
        ok = stbi_write_jpg_to_func(append_bytes, &bytes, img.width, img.height, img.channels,
                                    img.pixels.data(), 92);
    } else if (ext == "ppm" || ext == "pgm") {
        Image out = with_channels(img, ext == "ppm" ? 3 : 1);
        std::string head = std::string(ext == "ppm" ? "P6" : "P5") + "\n" +
                           std::to_string(out.width) + " " + std::to_string(out.height) + "\n255\n";
        bytes.assign(head.begin(), head.end());
        bytes.insert(bytes.end(), out.pixels.begin(), out.pixels.end());
    } else {
        *err = "cannot write " + path + ": the name must end in .png, .jpg, .ppm or .pgm";
        return false;
    }
    if (!ok) {
        *err = "cannot encode " + path;
        return false;
    }
    return write_file(path, bytes, err);
}

Image with_channels(const Image &img, int channels)
{
    if (img.channels == channels)
        return img;
    Image out;
    out.width = img.width;
    out.height = img.height;
    out.channels = channels;
    size_t n = (size_t)img.width * img.height;
    out.pixels.resize(n * channels);
    const uint8_t *s = img.pixels.data();
    uint8_t *d = out.pixels.data();
    for (size_t i = 0; i < n; ++i) {
        if (channels == 3) {
            d[3 * i] = d[3 * i + 1] = d[3 * i + 2] = s[i];
        } else {
            // The weights the decoder uses for its own grey conversion.
            d[i] = (uint8_t)((s[3 * i] * 77 + s[3 * i + 1] * 150 + s[3 * i + 2] * 29) >> 8);
        }
    }
    return out;
}

} // namespace cli

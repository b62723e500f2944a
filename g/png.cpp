// PNG through libpng: decoding the Theme's embedded images from memory, and writing bitmaps
// and window screenshots to files. libpng reports errors by longjmp, so each setjmp sits in a
// small function whose locals need no destructors; what must be freed lives in its caller.
#include "g/png.h"

#include <png.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <vector>

#include "g/theme.h"

namespace G {
namespace {

// Larger images than this are damage, not artwork.
constexpr png_uint_32 kMaxSide = 16384;

struct Job {
    const uint8_t* bytes = nullptr;  // decoding: the PNG in memory
    size_t size = 0;
    size_t offset = 0;
    FILE* file = nullptr;  // encoding: the temporary file
    char message[256] = "";
    std::unique_ptr<Bitmap> bitmap;
    std::vector<png_bytep> rows;
    std::vector<uint8_t> row;
};

void OnError(png_structp png, png_const_charp text) {
    Job* job = static_cast<Job*>(png_get_error_ptr(png));
    std::snprintf(job->message, sizeof job->message, "%s", text);
    png_longjmp(png, 1);
}

void OnWarning(png_structp, png_const_charp) {}

void ReadFromMemory(png_structp png, png_bytep out, png_size_t length) {
    Job* job = static_cast<Job*>(png_get_io_ptr(png));
    if (length > job->size - job->offset) png_error(png, "truncated");
    std::memcpy(out, job->bytes + job->offset, length);
    job->offset += length;
}

bool Decode(png_structp png, png_infop info, Job& job) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_set_user_limits(png, kMaxSide, kMaxSide);
    png_set_read_fn(png, &job, ReadFromMemory);
    png_read_info(png, info);
    int colorType = png_get_color_type(png, info);
    if (colorType != PNG_COLOR_TYPE_RGB && colorType != PNG_COLOR_TYPE_RGBA) return false;
    png_set_strip_16(png);
    png_set_interlace_handling(png);
    if (colorType == PNG_COLOR_TYPE_RGB) png_set_bgr(png);
    png_read_update_info(png, info);
    int width = static_cast<int>(png_get_image_width(png, info));
    int height = static_cast<int>(png_get_image_height(png, info));
    job.bitmap = std::make_unique<Bitmap>(width, height, colorType == PNG_COLOR_TYPE_RGB ? 3 : 4);
    job.rows.resize(height);
    for (int y = 0; y < height; ++y) job.rows[y] = job.bitmap->Row(y);
    png_read_image(png, job.rows.data());
    png_read_end(png, nullptr);
    return true;
}

using RowFiller = std::function<void(int y, uint8_t* row)>;

bool Encode(png_structp png, png_infop info, Job& job, int width, int height, int colorType,
            const RowFiller& fill) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_init_io(png, job.file);
    png_set_IHDR(png, info, width, height, 8, colorType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    job.row.resize(static_cast<size_t>(width) * (colorType == PNG_COLOR_TYPE_RGB ? 3 : 4));
    for (int y = 0; y < height; ++y) {
        fill(y, job.row.data());
        png_write_row(png, job.row.data());
    }
    png_write_end(png, nullptr);
    return true;
}

bool WriteFile(const std::string& path, int width, int height, int colorType, const RowFiller& fill,
               std::string& error) {
    if (width <= 0 || height <= 0) {
        error = "empty image";
        return false;
    }
    std::string temporary = path + ".tmp";
    Job job;
    job.file = std::fopen(temporary.c_str(), "wb");
    if (!job.file) {
        error = "cannot create " + temporary + ": " + std::strerror(errno);
        return false;
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &job, OnError, OnWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    bool written = info && Encode(png, info, job, width, height, colorType, fill);
    png_destroy_write_struct(&png, &info);
    bool closed = std::fclose(job.file) == 0;
    if (written && closed && std::rename(temporary.c_str(), path.c_str()) == 0) return true;
    error = "cannot write " + path + ": " +
            (job.message[0] ? std::string(job.message) : std::string(std::strerror(errno)));
    std::remove(temporary.c_str());
    return false;
}

}  // namespace

std::unique_ptr<Bitmap> DecodePng(const uint8_t* bytes, size_t size) {
    if (!bytes || size < 8 || png_sig_cmp(bytes, 0, 8) != 0) return nullptr;
    Job job;
    job.bytes = bytes;
    job.size = size;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &job, OnError, OnWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    bool decoded = info && Decode(png, info, job);
    png_destroy_read_struct(&png, &info, nullptr);
    return decoded ? std::move(job.bitmap) : nullptr;
}

bool WritePng(const std::string& path, const uint8_t* bgrBottomUp, int width, int height, int rowLengthPixels,
              std::string& error) {
    if (!bgrBottomUp || rowLengthPixels < width) {
        error = "no pixels";
        return false;
    }
    auto fill = [&](int y, uint8_t* row) {
        const uint8_t* in = bgrBottomUp + static_cast<size_t>(height - 1 - y) * rowLengthPixels * 3;
        for (int x = 0; x < width; ++x, in += 3, row += 3) {
            row[0] = in[2];
            row[1] = in[1];
            row[2] = in[0];
        }
    };
    return WriteFile(path, width, height, PNG_COLOR_TYPE_RGB, fill, error);
}

bool WriteBitmapPng(const std::string& path, const Bitmap& bitmap, std::string* error) {
    std::string message;
    bool rgba = bitmap.bytesPerPixel == 4;
    auto fill = [&](int y, uint8_t* row) {
        const uint8_t* in = bitmap.Row(y);
        if (rgba) {
            std::memcpy(row, in, static_cast<size_t>(bitmap.width) * 4);
            return;
        }
        for (int x = 0; x < bitmap.width; ++x, in += 3, row += 3) {
            row[0] = in[2];
            row[1] = in[1];
            row[2] = in[0];
        }
    };
    bool written = WriteFile(path, bitmap.width, bitmap.height,
                             rgba ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB, fill, message);
    if (!written && error) *error = message;
    return written;
}

}  // namespace G

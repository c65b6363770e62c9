#include "TiffStack.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include <tiffio.h>

namespace ovdtool {
namespace {

struct TiffCloser {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using Tiff = std::unique_ptr<TIFF, TiffCloser>;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

void QuietWarnings(const char*, const char*, va_list) {}

// libtiff reports a page directory it can't read only through its error handler: the chain
// then just ends, and the file would read as a stack of the pages before.
thread_local bool tReadError = false;
void NoteReadError(const char*, const char*, va_list) { tReadError = true; }

Tiff Open(const std::string& path, const char* mode) {
    TIFFSetWarningHandler(&QuietWarnings);
    TIFFSetErrorHandler(&QuietWarnings);
    Tiff tiff(TIFFOpen(path.c_str(), mode));
    if (!tiff)
        throw StackError(path + ": not a readable TIFF file");
    return tiff;
}

// Value of "key=" in ImageJ's line-based description, or of the attribute key="..." in
// OME-XML; 0 when absent.
float FindNumber(const std::string& text, const std::string& key) {
    for (const std::string& pattern : {key + "=\"", key + "="}) {
        const std::size_t at = text.find(pattern);
        if (at != std::string::npos)
            return std::strtof(text.c_str() + at + pattern.size(), nullptr);
    }
    return 0;
}

std::string Description(TIFF* tiff) {
    char* description = nullptr;
    return TIFFGetField(tiff, TIFFTAG_IMAGEDESCRIPTION, &description) && description ? description
                                                                                     : "";
}

// Text of "key=" up to the line's end in ImageJ's description, or of the attribute key="..."
// in OME-XML; empty when absent. A key must begin its line or follow a blank, so that "unit"
// does not match the end of "zunit" or "PhysicalSizeXUnit".
std::string FindText(const std::string& text, const std::string& key) {
    for (const std::string& pattern : {key + "=\"", key + "="}) {
        for (std::size_t at = text.find(pattern); at != std::string::npos;
             at = text.find(pattern, at + 1)) {
            if (at > 0 && text[at - 1] != '\n' && text[at - 1] != ' ')
                continue;
            const std::size_t from = at + pattern.size();
            const std::size_t to = text.find_first_of(pattern.back() == '"' ? "\"" : "\r\n", from);
            return text.substr(from, to == std::string::npos ? std::string::npos : to - from);
        }
    }
    return {};
}

// Micrometres in one unit of length as ImageJ, OME or a person writes it; 0 for a unit that
// is no length (ImageJ's "pixel") or that is not known, so the spacing counts as unknown
// rather than read in the wrong unit.
float MicrometresPerUnit(std::string unit) {
    unit.erase(unit.find_last_not_of(" \t") + 1);
    std::transform(unit.begin(), unit.end(), unit.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    static const struct {
        const char* name;
        float micrometres;
    } kUnits[] = {{"micron", 1.0f},    {"microns", 1.0f},    {"um", 1.0f},
                  {"\xC2\xB5m", 1.0f}, {"\xB5m", 1.0f},      {"\\u00b5m", 1.0f},
                  {"\xCE\xBCm", 1.0f}, {"micrometer", 1.0f}, {"micrometre", 1.0f},
                  {"nm", 1e-3f},       {"nanometer", 1e-3f}, {"nanometre", 1e-3f},
                  {"mm", 1e3f},        {"millimeter", 1e3f}, {"millimetre", 1e3f},
                  {"cm", 1e4f},        {"m", 1e6f},          {"inch", 25400.0f},
                  {"in", 25400.0f},    {"\xC3\x85", 1e-4f},  {"\\u00c5", 1e-4f}};
    for (const auto& known : kUnits)
        if (unit == known.name)
            return known.micrometres;
    return 0.0f;
}

// The unit of the resolution tags when a description names none: TIFF's own unit tag, where
// ImageJ's "no unit" and the tag's absence both mean the micrometre this tool writes.
float MicrometresPerResolutionUnit(TIFF* tiff) {
    uint16_t unit = RESUNIT_NONE;
    TIFFGetField(tiff, TIFFTAG_RESOLUTIONUNIT, &unit);
    return unit == RESUNIT_CENTIMETER ? 1e4f : unit == RESUNIT_INCH ? 25400.0f : 1.0f;
}

Spacing ReadSpacing(TIFF* tiff) {
    Spacing spacing;
    const std::string text = Description(tiff);
    // Each axis in its own unit where the file names one, else in the file's unit.
    auto unitOf = [&](const std::string& key, const std::string& fallbackKey, float fallback) {
        std::string unit = FindText(text, key);
        if (unit.empty())
            unit = FindText(text, fallbackKey);
        return unit.empty() ? fallback : MicrometresPerUnit(unit);
    };
    if (text.find("<OME") != std::string::npos) {
        // OME's default unit is the micrometre.
        spacing.x = FindNumber(text, "PhysicalSizeX") * unitOf("PhysicalSizeXUnit", "", 1.0f);
        spacing.y = FindNumber(text, "PhysicalSizeY") * unitOf("PhysicalSizeYUnit", "", 1.0f);
        spacing.z = FindNumber(text, "PhysicalSizeZ") * unitOf("PhysicalSizeZUnit", "", 1.0f);
        return spacing;
    }
    if (text.rfind("ImageJ=", 0) == 0) {
        const float fileUnit = unitOf("unit", "", MicrometresPerResolutionUnit(tiff));
        spacing.z = FindNumber(text, "spacing") * unitOf("zunit", "unit", fileUnit);
        float xResolution = 0, yResolution = 0; // pixels per unit
        if (TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &xResolution) && xResolution > 0)
            spacing.x = unitOf("xunit", "unit", fileUnit) / xResolution;
        if (TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &yResolution) && yResolution > 0)
            spacing.y = unitOf("yunit", "unit", fileUnit) / yResolution;
    }
    return spacing;
}

// What the first page's description says the file holds; 0 pages where it says nothing.
struct DeclaredContent {
    long pages = 0;
    long channels = 1, frames = 1;
    bool channelFastest = true;
};

DeclaredContent ReadDeclaredContent(TIFF* tiff) {
    const std::string text = Description(tiff);
    // Whole names only: OME's SizeZ is also the end of PhysicalSizeZ, and ImageJ's keys each
    // begin a line.
    auto count = [&](const std::string& key) { return std::lround(FindNumber(text, key)); };
    DeclaredContent declared;
    long slices = 0;
    if (text.find("<OME") != std::string::npos) {
        slices = count(" SizeZ");
        declared.channels = std::max(count(" SizeC"), 1L);
        declared.frames = std::max(count(" SizeT"), 1L);
        declared.channelFastest = text.find("DimensionOrder=\"XYZ") == std::string::npos;
    } else if (text.rfind("ImageJ=", 0) == 0) {
        slices = count("\nslices");
        declared.channels = std::max(count("\nchannels"), 1L);
        declared.frames = std::max(count("\nframes"), 1L);
        declared.pages = count("\nimages");
    }
    if (declared.pages <= 0 && slices > 0)
        declared.pages = slices * declared.channels * declared.frames;
    return declared;
}

// Pages of several time points lie interleaved in one file; read as one stack they would be
// restored as slices of one object, which they are not. Channels are told apart by the reader.
void RefuseTimeSeries(const DeclaredContent& declared, const std::string& path) {
    if (declared.frames > 1)
        throw StackError(path + ": a hyperstack of " + std::to_string(declared.frames) +
                         " time points; time points must be restored separately (save each as a "
                         "stack of its own)");
}

StackShape ReadPageShape(TIFF* tiff, const std::string& path) {
    uint32_t width = 0, height = 0;
    uint16_t bits = 0, samples = 1, format = SAMPLEFORMAT_UINT;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &format);
    if (samples != 1)
        throw StackError(path + ": colour TIFF (" + std::to_string(samples) +
                         " samples per pixel); save one grayscale channel");
    StackShape shape;
    shape.width = int(width);
    shape.height = int(height);
    if (bits == 8 && format == SAMPLEFORMAT_UINT)
        shape.type = PixelType::U8;
    else if (bits == 16 && format == SAMPLEFORMAT_UINT)
        shape.type = PixelType::U16;
    else if (bits == 32 && format == SAMPLEFORMAT_IEEEFP)
        shape.type = PixelType::F32;
    else
        throw StackError(path + ": unsupported TIFF pixels (" + std::to_string(bits) +
                         "-bit, format " + std::to_string(format) +
                         "); use 8- or 16-bit unsigned or 32-bit float grayscale");
    if (width < 1 || height < 1 || width > 32767 || height > 32767)
        throw StackError(path + ": page size out of range (1 to 32767 pixels a side)");
    return shape;
}

std::size_t BytesOf(PixelType type) {
    return type == PixelType::U8 ? 1 : type == PixelType::U16 ? 2 : 4;
}

} // namespace

bool HasTiffExtension(const std::string& path) {
    std::string lower = path;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    auto endsWith = [&](const std::string& suffix) {
        return lower.size() >= suffix.size() &&
               lower.compare(lower.size() - suffix.size(), suffix.size(), suffix) == 0;
    };
    return endsWith(".tif") || endsWith(".tiff");
}

TiffStackInfo ProbeTiff(const std::string& path) {
    Tiff tiff = Open(path, "r");
    TiffStackInfo info;
    info.shape = ReadPageShape(tiff.get(), path);
    info.spacing = ReadSpacing(tiff.get());
    const DeclaredContent declared = ReadDeclaredContent(tiff.get());
    RefuseTimeSeries(declared, path);
    int pages = 0;
    tReadError = false;
    TIFFSetErrorHandler(&NoteReadError);
    do {
        const StackShape page = ReadPageShape(tiff.get(), path);
        if (page.width != info.shape.width || page.height != info.shape.height || page.type != info.shape.type)
            throw StackError(path + ": page " + std::to_string(pages + 1) +
                             " differs in size or pixel type from the first page");
        ++pages;
    } while (TIFFReadDirectory(tiff.get()));
    TIFFSetErrorHandler(&QuietWarnings);
    // A file cut short loses the pages behind the cut, and what is left reads as a thinner
    // stack: the chain of page directories then points past the end, or the description
    // promises more pages than arrived.
    if (tReadError)
        throw StackError(path + ": the pages end after page " + std::to_string(pages) +
                         " where the file points to more; it is truncated or damaged");
    if (declared.pages > pages)
        throw StackError(path + ": the file declares " + std::to_string(declared.pages) +
                         " pages but holds " + std::to_string(pages) +
                         "; it is truncated or damaged");
    if (pages % declared.channels != 0)
        throw StackError(path + ": " + std::to_string(pages) + " pages don't divide into its " +
                         std::to_string(declared.channels) + " channels; it is damaged");
    info.channels = int(declared.channels);
    info.channelFastest = declared.channelFastest;
    info.shape.depth = pages / info.channels;
    if (info.shape.depth > 32767)
        throw StackError(path + ": more than 32767 slices");
    return info;
}

void TiffToRaw(const std::string& tiffPath, const std::vector<std::string>& rawPaths) {
    const TiffStackInfo info = ProbeTiff(tiffPath);
    const int channels = int(rawPaths.size());
    if (channels != info.channels)
        throw StackError(tiffPath + ": holds " + std::to_string(info.channels) + " channels, not " +
                         std::to_string(channels));
    Tiff tiff = Open(tiffPath, "r");
    std::vector<File> outputs;
    for (const std::string& rawPath : rawPaths) {
        outputs.emplace_back(std::fopen(rawPath.c_str(), "wb"));
        if (!outputs.back())
            throw StackError(rawPath + ": cannot be written");
    }
    const std::size_t rowBytes = std::size_t(info.shape.width) * BytesOf(info.shape.type);
    std::vector<unsigned char> row(std::max<std::size_t>(rowBytes, TIFFScanlineSize(tiff.get())));
    int page = 0;
    do {
        const int channel = info.channelFastest ? page % channels : page / info.shape.depth;
        std::FILE* out = outputs[std::size_t(channel)].get();
        for (int y = 0; y < info.shape.height; ++y) {
            if (TIFFReadScanline(tiff.get(), row.data(), uint32_t(y), 0) < 0)
                throw StackError(tiffPath + ": damaged or unsupported (tiled or compressed beyond libtiff)");
            if (std::fwrite(row.data(), 1, rowBytes, out) != rowBytes)
                throw StackError(rawPaths[std::size_t(channel)] + ": disk full while writing");
        }
        ++page;
    } while (TIFFReadDirectory(tiff.get()));
}

uint64_t RawFloatToTiff(const std::vector<std::string>& rawPaths, const std::string& tiffPath,
                        const TiffOutput& layout, const std::string& shownName) {
    std::vector<File> inputs;
    for (const std::string& rawPath : rawPaths) {
        inputs.emplace_back(std::fopen(rawPath.c_str(), "rb"));
        if (!inputs.back())
            throw StackError(rawPath + ": cannot be read");
    }
    // libtiff's own messages are silenced; the system's reason for the failed write is what
    // the user can act on.
    auto writeFailed = [&] {
        return StackError(shownName + ": cannot be written (" +
                          (errno != 0 ? std::strerror(errno) : "is the disk full?") + ")");
    };
    const StackShape& shape = layout.shape;
    const int channels = int(inputs.size());
    const int pages = shape.depth * channels;
    const bool words = layout.u16Scale > 0;
    // Classic TIFF addresses 4 GiB; larger stacks are written as BigTIFF.
    const double bytes = double(shape.width) * shape.height * pages * (words ? 2 : 4);
    TIFFSetWarningHandler(&QuietWarnings);
    TIFFSetErrorHandler(&QuietWarnings);
    errno = 0;
    Tiff tiff(TIFFOpen(tiffPath.c_str(), bytes > 3.9e9 ? "w8" : "w"));
    if (!tiff)
        throw writeFailed();
    std::string description = "ImageJ=1.11a\nimages=" + std::to_string(pages);
    if (channels > 1)
        description += "\nchannels=" + std::to_string(channels);
    description += "\nslices=" + std::to_string(shape.depth);
    if (channels > 1)
        description += "\nhyperstack=true\nmode=composite";
    description += "\nunit=micron\nspacing=" + std::to_string(layout.spacing.z) + "\nloop=false\n";
    if (words) {
        char scale[64];
        std::snprintf(scale, sizeof scale, "ovd_scale=%.9g\n", layout.u16Scale);
        description += scale;
    }
    std::vector<float> row(std::size_t(shape.width));
    std::vector<uint16_t> wordRow(words ? row.size() : 0);
    uint64_t clipped = 0;
    for (int page = 0; page < pages; ++page) {
        std::FILE* in = inputs[std::size_t(page % channels)].get();
        TIFF* t = tiff.get();
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(shape.width));
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(shape.height));
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, words ? 16 : 32);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, words ? SAMPLEFORMAT_UINT : SAMPLEFORMAT_IEEEFP);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, uint32_t(shape.height));
        TIFFSetField(t, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
        TIFFSetField(t, TIFFTAG_PAGENUMBER, uint16_t(page), uint16_t(pages));
        if (layout.spacing.x > 0 && layout.spacing.y > 0) {
            TIFFSetField(t, TIFFTAG_XRESOLUTION, 1.0f / layout.spacing.x);
            TIFFSetField(t, TIFFTAG_YRESOLUTION, 1.0f / layout.spacing.y);
            TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_NONE);
        }
        if (page == 0)
            TIFFSetField(t, TIFFTAG_IMAGEDESCRIPTION, description.c_str());
        for (int y = 0; y < shape.height; ++y) {
            if (std::fread(row.data(), sizeof(float), row.size(), in) != row.size())
                throw StackError(rawPaths[std::size_t(page % channels)] + ": shorter than its stated size");
            void* pixels = row.data();
            if (words) {
                for (std::size_t x = 0; x < row.size(); ++x) {
                    const double value = std::round(double(row[x]) * layout.u16Scale);
                    // NaN fails both comparisons and is counted and stored as 0.
                    const bool inside = value >= 0.0 && value <= 65535.0;
                    clipped += !inside;
                    wordRow[x] = inside ? uint16_t(value) : value > 65535.0 ? 65535 : 0;
                }
                pixels = wordRow.data();
            }
            if (TIFFWriteScanline(t, pixels, uint32_t(y), 0) < 0)
                throw writeFailed();
        }
        if (!TIFFWriteDirectory(t))
            throw writeFailed();
    }
    if (!TIFFFlush(tiff.get()))
        throw writeFailed();
    return clipped;
}

void RawFloatToTiff(const std::string& rawPath, const std::string& tiffPath,
                    const StackShape& shape, const Spacing& spacing, const std::string& shownName) {
    RawFloatToTiff(std::vector<std::string>{rawPath}, tiffPath, TiffOutput{shape, spacing}, shownName);
}

} // namespace ovdtool

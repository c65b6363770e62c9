#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "io/cTempFileGenerator.h"
#include "largevolume/StackFiles.h"
#include "largevolume/cMaximumProjectionInitialImageSource.h"
#include "largevolume/cMinimumProjectionInitialImageSource.h"
#include "largevolume/cSliceInitialImageSource.h"
#include "largevolume/cSumProjectionInitialImageSource.h"
#include "largevolume/cVolumeInitialImageSource.h"
#include "support/TempDir.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

cCountedPtr<cDeconLog> LogFor(const std::string& file, int32_t w, int32_t h, int32_t d,
                              int32_t slice = 0) {
    cCountedPtr<cDeconLog> log(new cDeconLog);
    cDeconParameter& p = log->GetParameters();
    p.SetString(DEC_SPARAMS_ORIGINAL_FILE, file);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_WIDTH, w);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT, h);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_DEPTH, d);
    p.SetInt(DEC_IPARAMS_SLICE_INDEX, slice);
    p.SetReal(DEC_RPARAMS_Z_SPACING, 0.25f);
    p.SetReal(DEC_RPARAMS_X_SPACING, 0.1f);
    p.SetBool(DEC_BPARAMS_IS_2D, false);
    return log;
}

using Source = std::function<std::unique_ptr<cInitialImageSource>(cCountedPtr<cDeconLog>)>;
template <class T> Source Make() {
    return [](cCountedPtr<cDeconLog> log) { return std::make_unique<T>(log); };
}

// The plane that each reduction must give, worked out pixel by pixel in slice order.
std::vector<float> Reduce(const Stack& s, const std::string& kind, uint32_t slice) {
    std::vector<float> plane(std::size_t{s.w} * s.h);
    for (uint32_t y = 0; y < s.h; ++y)
        for (uint32_t x = 0; x < s.w; ++x) {
            float v = kind == "max"   ? 0.0f
                      : kind == "min" ? std::numeric_limits<float>::max()
                                      : 0.0f;
            for (uint32_t z = 0; z < s.d; ++z) {
                const float p = s.at(x, y, z);
                v = kind == "max" ? std::max(v, p) : kind == "min" ? std::min(v, p) : v + p;
            }
            plane[y * s.w + x] = kind == "slice" ? s.at(x, y, slice) : v;
        }
    return plane;
}

struct SourceCase {
    const char* kind;
    Source make;
};

const std::vector<SourceCase> kReducing = {
    {"max", Make<cMaximumProjectionInitialImageSource>()},
    {"min", Make<cMinimumProjectionInitialImageSource>()},
    {"sum", Make<cSumProjectionInitialImageSource>()},
    {"slice", Make<cSliceInitialImageSource>()},
};

} // namespace

TEST(cInitialImageSource, ReducingSourcesWriteOnePlaneAndRewriteTheLog) {
    TempDir dir;
    cTempFileGenerator::Instance().SetDirectory(dir.Path().string());
    // Position (0, 0) is negative in every slice, so the maximum projection gives 0 there.
    for (uint32_t depth : {3u, 1u}) {
        const Stack in = MakeStack(5, 4, depth, [](uint32_t x, uint32_t y, uint32_t z) {
            return x == 0 && y == 0 ? -1.5f - float(z) : float(x * 7 + y * 3) * 0.5f - 3.0f * z;
        });
        const std::string file = dir.File("in" + std::to_string(depth));
        WriteStack(file, in);
        for (const SourceCase& c : kReducing) {
            const cCountedPtr<cDeconLog> log = LogFor(file, 5, 4, int32_t(depth), depth - 1);
            c.make(log)->Generate();
            const cDeconParameter& p = log->GetParameters();
            const std::string out = p.GetString(DEC_SPARAMS_ORIGINAL_FILE);
            EXPECT_NE(out, file) << c.kind;
            EXPECT_EQ(std::filesystem::path(out).parent_path(), dir.Path()) << c.kind;
            const std::vector<float> plane = ReadRaw<float>(out);
            EXPECT_EQ(plane, Reduce(in, c.kind, depth - 1)) << c.kind << " depth " << depth;
            // A single slice comes back unchanged, but for the maximum's floor at 0.
            if (depth == 1 && std::string(c.kind) != "max") {
                EXPECT_EQ(plane, in.v) << c.kind;
            }
            EXPECT_EQ(p.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH), 1);
            EXPECT_EQ(p.GetReal(DEC_RPARAMS_Z_SPACING), 0.0f);
            EXPECT_EQ(ReadRaw<float>(file), in.v) << "input changed by " << c.kind;
        }
    }
}

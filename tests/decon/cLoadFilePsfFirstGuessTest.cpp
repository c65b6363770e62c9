#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "decon/cLoadFilePsfFirstGuess.h"
#include "support/RawStack.h"
#include "support/TempDir.h"
#include "support/TestImages.h"

using namespace Ovidane;
using OvidaneTest::At;
using OvidaneTest::TempDir;

namespace {

// Writes a raw float stack whose pixel (x, y, z) is rule(x, y, z); `keep` cuts the file
// short to that many pixels.
void WriteStack(const std::string& name, const cImageDimensions& size,
                const OvidaneTest::PixelFunction& rule, std::size_t keep = SIZE_MAX) {
    std::vector<float> pixels = OvidaneTest::Pixels(OvidaneTest::MakeImage(size, rule));
    pixels.resize(std::min(keep, pixels.size()));
    OvidaneTest::WriteRaw(name, pixels);
}

// A value that tells where in the file a pixel came from.
float Position(uint32_t x, uint32_t y, uint32_t z) {
    return static_cast<float>(x + 100 * y + 10000 * z);
}

cFloatImagePtr Load(const std::string& name, const cImageDimensions& image, float imageXY,
                    float imageZ, const cImageDimensions& psf, float psfXY, float psfZ) {
    cLoadFilePsfFirstGuess guess(image, imageXY, imageXY, imageZ, psf, psfXY, psfXY, psfZ);
    guess.SetFileName(name);
    cFloatImagePtr result, original;
    guess.Apply(result, original);
    return result;
}

// The message of the refusal, with no PSF handed out.
std::string Refusal(cLoadFilePsfFirstGuess& guess) {
    cFloatImagePtr psf, original;
    const std::string message = OvidaneTest::FailureOf([&] { guess.Apply(psf, original); });
    EXPECT_FALSE(psf);
    return message;
}

} // namespace

TEST(cLoadFilePsfFirstGuess, LargerFileIsCutAndSmallerPaddedRoundTheCentre) {
    TempDir dir;
    const cImageDimensions image{16, 12, 8};

    // Twice the image on every axis: the middle half is kept. Half the image on every axis,
    // a bump inside a border of 0.5: the file's pixels land round the origin, and the rim
    // around them is bridged from the border, so it is 0.5 all through.
    const cImageDimensions large{32, 24, 16}, small{8, 6, 4};
    const auto bump = [](uint32_t x, uint32_t y, uint32_t z) {
        const bool inside = x > 0 && x < 7 && y > 0 && y < 5 && z > 0 && z < 3;
        return inside ? 1.0f + Position(x, y, z) : 0.5f;
    };
    WriteStack(dir.File("large.raw"), large, Position);
    WriteStack(dir.File("small.raw"), small, bump);
    cFloatImagePtr cut = Load(dir.File("large.raw"), image, 0.1f, 0.3f, large, 0.1f, 0.3f);
    cFloatImagePtr padded = Load(dir.File("small.raw"), image, 0.1f, 0.3f, small, 0.1f, 0.3f);
    for (uint32_t z = 0; z < image.z; ++z)
        for (uint32_t y = 0; y < image.y; ++y)
            for (uint32_t x = 0; x < image.x; ++x) {
                // Pixel (x, y, z) of the PSF is pixel (x + 8, y + 6, z + 4) of the centred
                // stack, where the large file's middle begins at 8, 6, 4 and the small file
                // occupies 4..11, 3..8, 2..5.
                const uint32_t cx = (x + 8) % 16, cy = (y + 6) % 12, cz = (z + 4) % 8;
                ASSERT_EQ(At(cut, x, y, z), Position(cx + 8, cy + 6, cz + 4));
                const bool fromFile = cx >= 4 && cx < 12 && cy >= 3 && cy < 9 && cz >= 2 && cz < 6;
                const float expected = fromFile ? bump(cx - 4, cy - 3, cz - 2) : 0.5f;
                ASSERT_NEAR(At(padded, x, y, z), expected, 1e-6f) << x << "," << y << "," << z;
            }
}

TEST(cLoadFilePsfFirstGuess, ResamplingToAnotherSpacingKeepsTheCentre) {
    TempDir dir;
    // A Gaussian centred in its stack, on a grid twice as coarse as the image's.
    const auto gaussian = [](double cx, double cy, double cz, double sigma) {
        return [=](uint32_t x, uint32_t y, uint32_t z) {
            const double d2 = (x - cx) * (x - cx) + (y - cy) * (y - cy) + (z - cz) * (z - cz);
            return static_cast<float>(std::exp(-d2 / (2 * sigma * sigma)));
        };
    };
    WriteStack(dir.File("coarse.raw"), {16, 16, 8}, gaussian(8, 8, 4, 1.5));
    cFloatImagePtr fine =
        Load(dir.File("coarse.raw"), {32, 32, 16}, 0.1f, 0.2f, {16, 16, 8}, 0.2f, 0.4f);
    ASSERT_EQ(fine->GetDimensions(), (cImageDimensions{32, 32, 16}));
    // The file's central sample lands on the origin unchanged, its neighbours symmetrically.
    EXPECT_NEAR(At(fine, 0, 0, 0), 1.0f, 1e-6f);
    EXPECT_NEAR(At(fine, 1, 0, 0), At(fine, 31, 0, 0), 1e-6f);
    EXPECT_NEAR(At(fine, 0, 1, 0), At(fine, 0, 31, 0), 1e-6f);
    EXPECT_NEAR(At(fine, 0, 0, 1), At(fine, 0, 0, 15), 1e-6f);
    EXPECT_LT(At(fine, 1, 0, 0), At(fine, 0, 0, 0));

    // The other way round, to a grid twice as coarse: pairs of samples merge, so the centre
    // may move by up to half a new pixel but no further.
    WriteStack(dir.File("fine.raw"), {32, 32, 16}, gaussian(16, 16, 8, 3.0));
    cFloatImagePtr coarse =
        Load(dir.File("fine.raw"), {16, 16, 8}, 0.1f, 0.2f, {32, 32, 16}, 0.05f, 0.1f);
    double sum = 0, mx = 0, my = 0, mz = 0;
    float peak = 0;
    for (uint32_t z = 0; z < 8; ++z)
        for (uint32_t y = 0; y < 16; ++y)
            for (uint32_t x = 0; x < 16; ++x) {
                const float v = At(coarse, x, y, z);
                peak = std::max(peak, v);
                sum += v;
                mx += v * (x < 8 ? x : x - 16.0);
                my += v * (y < 8 ? y : y - 16.0);
                mz += v * (z < 4 ? z : z - 8.0);
            }
    EXPECT_EQ(peak, At(coarse, 0, 0, 0));
    EXPECT_LE(std::fabs(mx / sum), 0.5);
    EXPECT_LE(std::fabs(my / sum), 0.5);
    EXPECT_LE(std::fabs(mz / sum), 0.5);
}

TEST(cLoadFilePsfFirstGuess, RefusesWithoutAWholeFile) {
    TempDir dir;
    const cImageDimensions size{8, 8, 4};
    cLoadFilePsfFirstGuess guess(size, 0.1f, 0.1f, 0.2f, size, 0.1f, 0.1f, 0.2f);
    EXPECT_EQ(Refusal(guess), "Empty PSF File Name in Apply");

    guess.SetFileName(dir.File("missing.raw"));
    EXPECT_EQ(Refusal(guess), "Unable to open PSF File in Apply");

    WriteStack(dir.File("short.raw"), size, Position, 8 * 8 * 4 - 1);
    guess.SetFileName(dir.File("short.raw"));
    EXPECT_EQ(Refusal(guess), "PSF File too short in Apply");
}

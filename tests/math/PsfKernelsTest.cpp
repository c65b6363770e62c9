#include <gtest/gtest.h>

#include <random>
#include <vector>

#include <hwy/targets.h>

#include "math/PsfKernels.h"

using namespace Ovidane;

// Every instruction set gives the scalar loops' bits: sub-pixels added in order (two to four
// take the de-interleaving road, others the scalar one), pupil terms added as written, plane
// sums in their sixteen parts (plain and while scaling), on lengths around the vector widths.
TEST(PsfKernels, EveryInstructionSetGivesTheScalarLoopsBits) {
    std::mt19937 engine(5);
    std::uniform_real_distribution<float> value(-1.0f, 3.0f);
    const auto line = [&](std::size_t n) {
        std::vector<float> v(n);
        for (float& x : v)
            x = value(engine);
        return v;
    };
    int tried = 0;
    for (const int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        SCOPED_TRACE(hwy::TargetName(target));
        for (const std::size_t n : {1u, 7u, 16u, 33u, 101u}) {
            for (uint32_t s = 1; s <= 5; ++s) {
                const std::vector<float> row = line(n * s), start = line(n);
                std::vector<float> blocks = start, expected = start;
                PsfKernels::AddRowBlocks(row.data(), blocks.data(), n, s);
                for (uint32_t b = 0; b < s; ++b)
                    for (std::size_t x = 0; x < n; ++x)
                        expected[x] += row[x * s + b];
                EXPECT_EQ(blocks, expected) << "n " << n << " s " << s;
            }
            const std::vector<float> row = line(n);
            std::vector<float> real = line(n), imaginary = line(n);
            std::vector<float> expectedReal = real, expectedImaginary = imaginary;
            PsfKernels::AddPupilTerm(row.data(), 0.3f, -0.7f, real.data(), imaginary.data(), n);
            for (std::size_t i = 0; i < n; ++i) {
                expectedReal[i] += 0.3f * row[i];
                expectedImaginary[i] += -0.7f * row[i];
            }
            EXPECT_EQ(real, expectedReal);
            EXPECT_EQ(imaginary, expectedImaginary);

            std::vector<float> scaled = row, expectedScaled = row;
            std::vector<double> parts(PsfKernels::kPlaneSumParts, 0.5), expectedParts = parts;
            PsfKernels::AddToPlaneSum(row.data(), n, parts.data());
            PsfKernels::ScaleAndAddToPlaneSum(scaled.data(), n, 1.7f, parts.data());
            for (std::size_t x = 0; x < n; ++x)
                expectedParts[x % PsfKernels::kPlaneSumParts] += row[x], expectedScaled[x] *= 1.7f;
            for (std::size_t x = 0; x < n; ++x)
                expectedParts[x % PsfKernels::kPlaneSumParts] += expectedScaled[x];
            EXPECT_EQ(scaled, expectedScaled);
            EXPECT_EQ(parts, expectedParts);
        }
        ++tried;
    }
    hwy::SetSupportedTargetsForTest(0);
    EXPECT_GE(tried, 2);
}

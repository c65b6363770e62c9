#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "ImageMathTestImages.h"
#include "core/cWorkerThreads.h"
#include "math/cImageMathGeneric.h"
#include "math/cImageMathHighway.h"
#include "math/cImageMathManager.h"

using namespace Ovidane;
using namespace OvidaneTest;

namespace {

// The vector back end next to the plain one, on images whose lines are no multiple of any
// vector width, in both layouts.
class HighwayTest : public ImageMathTestImages {
protected:
    HighwayTest() : ImageMathTestImages(7) {}

    cImageMathPtr plainPtr{new cImageMathGeneric};
    cImageMathGeneric& plain = static_cast<cImageMathGeneric&>(*plainPtr);
    cImageMathHighway vector{plainPtr};
    cImageMath* const backEnds[2] = {&plain, &vector};
};

// Every element-wise operation on lines of odd length in either layout: the plain back end
// gives the stated value, the vector one the plain result or its own stated rule; both also
// into a itself, every pixel read before it is written, and subtraction into b.
TEST_F(HighwayTest, ElementWiseFormsFollowTheirRulesOnBothBackEnds) {
    for (const cImageDimensions size : {cImageDimensions{37, 5, 3}, cImageDimensions{1, 3, 2}}) {
        for (const bool perSlice : {false, true}) {
            const cFloatImagePtr a = Random(size, perSlice), b = Random(size, !perSlice);
            const std::vector<float> pa = Pixels(a), pb = Pixels(b);
            for (const ElementWise& op : ElementWiseOperations()) {
                SCOPED_TRACE(std::string(op.name) + (perSlice ? " per slice" : " one block") +
                             " width " + std::to_string(size.x));
                const cFloatImagePtr expected = Make(size, perSlice, 123.0f);
                op.run(plain, Clone(a), Clone(b), expected);
                const cFloatImagePtr in = Clone(a, perSlice), out = Make(size);
                op.run(vector, in, Clone(b), out);
                const std::vector<float> got = Pixels(out), want = Pixels(expected);
                for (std::size_t i = 0; i < got.size(); ++i) {
                    ASSERT_TRUE(!op.plain || Same(want[i], op.plain(pa[i], pb[i])))
                        << i << ": " << want[i] << " for " << pa[i] << ", " << pb[i];
                    const float rule = op.vector ? op.vector(pa[i], pb[i]) : want[i];
                    if (op.tolerance == 0.0f)
                        ASSERT_TRUE(Same(got[i], rule)) << i << ": " << got[i] << " " << rule;
                    else
                        ASSERT_NEAR(got[i], rule, op.tolerance * std::max(1.0f, std::fabs(rule)))
                            << i << " for " << pa[i] << ", " << pb[i];
                }
                // The vector forms leave a alone (the plain logarithm writes its floor back);
                // every run gets a copy of b, which the vector power raises in place.
                EXPECT_EQ(Pixels(in), pa);
                for (cImageMath* math : backEnds) {
                    const cFloatImagePtr inPlace = Clone(a, perSlice);
                    op.run(*math, inPlace, Clone(b), inPlace);
                    const std::vector<float> aliased = Pixels(inPlace);
                    for (std::size_t i = 0; i < got.size(); ++i)
                        ASSERT_TRUE(Same(aliased[i], math == &plain ? want[i] : got[i]))
                            << "in place, pixel " << i;
                }
            }
            for (cImageMath* math : backEnds) {
                const cFloatImagePtr intoB = Clone(b, perSlice);
                math->SubtractImage(a, intoB, intoB);
                const std::vector<float> difference = Pixels(intoB);
                for (std::size_t i = 0; i < pa.size(); ++i)
                    ASSERT_EQ(difference[i], pa[i] - pb[i]);
            }
        }
    }
}

// Boxes with their corners in either order, at different places of images in both layouts;
// a subtraction into one of its inputs takes the plain road and must give the same values.
TEST_F(HighwayTest, BoxFormsMatchThePlainOnes) {
    const cImageDimensions size{23, 6, 4};
    const cImageBox boxA{21, 4, 2, 3, 1, 0}, boxB{18, 3, 3, 0, 0, 1}, boxOut{20, 5, 3, 2, 2, 1};
    using Call = std::function<void(cImageMath&, Images, Images, Images)>;
    const std::pair<const char*, Call> calls[] = {
        {"AddImageRoi", [&](cImageMath& m, Images a, Images b,
                            Images o) { m.AddImageRoi(a, b, o, boxA, boxB, boxOut); }},
        {"MultiplyImageRoi", [&](cImageMath& m, Images a, Images b,
                                 Images o) { m.MultiplyImageRoi(a, b, o, boxA, boxB, boxOut); }},
        {"SubtractImageRoi", [&](cImageMath& m, Images a, Images b,
                                 Images o) { m.SubtractImageRoi(a, b, o, boxA, boxB, boxOut); }},
        {"SubtractImageRoi into b",
         [&](cImageMath& m, Images a, Images b, Images) {
             m.SubtractImageRoi(a, b, b, boxA, boxB, boxOut);
         }},
        {"SetRoiToConstant",
         [&](cImageMath& m, Images, Images, Images o) { m.SetRoiToConstant(o, boxOut, -2.5f); }},
    };
    const cFloatImagePtr a = Random(size, false), b = Random(size, true);
    for (const auto& [name, call] : calls) {
        SCOPED_TRACE(name);
        const cFloatImagePtr plainB = Clone(b, true), plainOut = Random(size, false);
        const cFloatImagePtr vectorB = Clone(b, true), vectorOut = Clone(plainOut, true);
        call(plain, a, plainB, plainOut);
        call(vector, a, vectorB, vectorOut);
        EXPECT_EQ(Pixels(vectorOut), Pixels(plainOut));
        EXPECT_EQ(Pixels(vectorB), Pixels(plainB));
    }
}

// Sums: the plain back end adds in double; the vector one adds each line in float and the
// lines in double. Both give results independent of the layout and the thread count and close
// to an exact sum; the extremes are exact; a count takes its low end, the vector count also
// its high end.
TEST_F(HighwayTest, ReductionsAreExactEnoughAndIndependentOfLayoutAndThreads) {
    const cImageDimensions size{203, 171, 3};
    const cFloatImagePtr a = Random(size, false), b = Random(size, true);
    double sum = 0, squares = 0, absolute = 0, product = 0, slice = 0, inRange = 0,
           normalized = 0;
    const std::vector<float> pa = Pixels(a), pb = Pixels(b);
    for (std::size_t i = 0; i < pa.size(); ++i) {
        sum += pa[i];
        squares += double(pa[i]) * pa[i];
        absolute += std::fabs(pa[i]);
        product += double(pa[i]) * pb[i];
        slice += i / (size.x * size.y) == 1 ? pa[i] : 0.0;
        inRange += pa[i] >= -1.0f && pa[i] < 4.0f;
        normalized += (pa[i] + 1.0f) / 5.0f;
    }
    const std::size_t atHigh = std::count(pa.begin(), pa.end(), 4.0f);
    ASSERT_GT(atHigh, 0u);
    for (cImageMath* math : backEnds) {
        SCOPED_TRACE(math == &plain ? "plain" : "vector");
        const auto reductions = [&](Images image) {
            float low = 0, high = 0;
            math->FindMinimumAndMaximumValue(image, low, high);
            return std::vector<double>{math->SumImage(image),
                                       math->SumImageSquared(image),
                                       math->AbsoluteSumImage(image),
                                       math->SumOfImageProduct(image, b),
                                       math->SumImageSlice(image, 1),
                                       math->AverageImage(image) * double(pa.size()),
                                       math->FindMinimumValue(image),
                                       math->FindMaximumValue(image),
                                       double(math->CountPixelInRange(image, -1.0f, 4.0f)),
                                       math->SumNormalizedImage(image, -1.0f, 4.0f),
                                       low,
                                       high};
        };
        cWorkerThreads::SetCount(1);
        const std::vector<double> one = reductions(a);
        cWorkerThreads::SetCount(2);
        const std::vector<double> two = reductions(a), perSlice = reductions(Clone(a, true));
        cWorkerThreads::SetCount(0);
        EXPECT_EQ(one, two);
        EXPECT_EQ(one, perSlice);
        const double exact[] = {sum, squares, absolute, product, slice, sum};
        for (std::size_t k = 0; k < 6; ++k)
            EXPECT_NEAR(one[k], exact[k], 1e-5 * absolute) << "reduction " << k;
        EXPECT_EQ(one[6], *std::min_element(pa.begin(), pa.end()));
        EXPECT_EQ(one[7], *std::max_element(pa.begin(), pa.end()));
        EXPECT_EQ(one[8], inRange + (math == &vector ? atHigh : 0));
        // The normalised sum takes each float quotient into a double sum: near exact.
        EXPECT_NEAR(one[9], normalized, 1e-9 * normalized);
        EXPECT_EQ(one[10], one[6]);
        EXPECT_EQ(one[11], one[7]);
    }
}

// The differences of the vector back end that a run can see, one case each.
TEST_F(HighwayTest, StatedDifferencesFromThePlainBackEnd) {
    // A range with its ends swapped is a failure of the vector count.
    const std::string refusal = FailureOf([&] { vector.CountPixelInRange(Make({5, 1, 1}), 2, 1); });
    EXPECT_EQ(refusal.rfind("Vector Math Error in CountPixelInRange: ", 0), 0u) << refusal;

    // Line search: a pixel whose ratio falls below the guard adds data·ln(1e-20) - d; the
    // others agree with the plain sum.
    const cImageDimensions s{19, 3, 1};
    const cFloatImagePtr data = Make(s, false, 2.0f), blurred = Make(s, false, 1.0f),
                         direction = Make(s, false, 0.5f), work = Make({19, 3, 2});
    At(direction, 4, 1, 0) = -1.0f; // ratio 0
    const float withGuard = vector.ComputeLogLikelihoodIncreaseByLineSearch(
        data, blurred, direction, work, 1.0f, 0, 0, 0, 0, 0, 0);
    const float without = plain.ComputeLogLikelihoodIncreaseByLineSearch(
        data, blurred, direction, work, 1.0f, 0, 0, 0, 0, 0, 0);
    EXPECT_NEAR(withGuard - without, 2.0f * std::log(1e-20f) + 1.0f, 1e-3f);

    // Good's penalty: the floor reaches the borders; the interior agrees with the plain one.
    const cImageDimensions g{9, 5, 3};
    const cFloatImagePtr reference = Random(g, false);
    ForEach(reference, [](float& p) { p = std::fabs(p); });
    const cFloatImagePtr plainEstimate = Random(g, true),
                         vectorEstimate = Clone(plainEstimate, false);
    plain.GoodsRoughnessPenalty(plainEstimate, reference, Make(g), 0.02f);
    vector.GoodsRoughnessPenalty(vectorEstimate, reference, Make(g), 0.02f);
    for (uint32_t z = 0; z < g.z; ++z)
        for (uint32_t y = 0; y < g.y; ++y)
            for (uint32_t x = 0; x < g.x; ++x) {
                const float p = At(plainEstimate, x, y, z), v = At(vectorEstimate, x, y, z);
                if (x == 0 || y == 0 || x + 1 == g.x || y + 1 == g.y)
                    ASSERT_EQ(v, p < 1e-20f ? 1e-20f : p) << x << " " << y << " " << z;
                else
                    ASSERT_NEAR(v, p, 1e-6f * std::fabs(p) + 1e-30f) << x << " " << y << " " << z;
            }

    // A wider copy between single blocks zeroes what lies below the guard value.
    const cFloatImagePtr narrow = Make({3, 1, 1}), wide = Make({5, 1, 1}, false, 7.0f);
    At(narrow, 0, 0, 0) = 1e-21f, At(narrow, 1, 0, 0) = -3.0f, At(narrow, 2, 0, 0) = 2.0f;
    vector.CopyImage(narrow, wide);
    EXPECT_EQ(Pixels(wide), (std::vector<float>{0, 0, 2, 0, 0}));

    // Saturating conversions: 16 bits halve the value, ties go to even.
    const cFloatImagePtr values = Make({6, 1, 1});
    const float raw[] = {70000.0f, -70000.0f, 5.0f, 3.0f, 300.0f, -4.0f};
    for (uint32_t x = 0; x < 6; ++x)
        At(values, x, 0, 0) = raw[x];
    const cCountedBox box(new cImageBox{5, 0, 0, 0, 0, 0});
    const cShortImagePtr words(new cOvdImage<uint16_t>({6, 1, 1}, Contiguous3D, "test"));
    const cByteImagePtr bytes(new cOvdImage<uint8_t>({6, 1, 1}, Contiguous3D, "test"));
    vector.ConvertRealtoShortRoi(values, words, box, box);
    vector.ConvertRealtoByteRoi(values, bytes, box, box);
    const uint16_t wantWords[] = {32767, 0x8000, 2, 2, 150, 0xFFFE};
    const uint8_t wantBytes[] = {255, 0, 5, 3, 255, 0};
    for (uint32_t x = 0; x < 6; ++x) {
        EXPECT_EQ(words->GetLinePointer(0, 0)[x], wantWords[x]) << x;
        EXPECT_EQ(bytes->GetLinePointer(0, 0)[x], wantBytes[x]) << x;
    }
}

// The remaining operations with a vector form give the plain result bit for bit: slice
// constants, the minimum projection along z, filling, and conversions from 8 and 16 bits; the
// whole-image conversion to 16 bits follows the vector box conversion's stated rule.
TEST_F(HighwayTest, RemainingVectorFormsMatchThePlainOnes) {
    const cImageDimensions size{37, 5, 3};
    const std::size_t count = size.Voxels();
    std::vector<uint8_t> bytes(count);
    std::vector<uint16_t> words(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<uint8_t>(i * 37 + 11);
        words[i] = static_cast<uint16_t>(i * 2654435761u >> 7);
    }
    const cByteImagePtr byteImage(new cOvdImage<uint8_t>(size, Contiguous3D, "test"));
    const cShortImagePtr wordImage(new cOvdImage<uint16_t>(size, Contiguous3D, "test"));
    std::copy(bytes.begin(), bytes.end(), byteImage->GetSlicePointer(0));
    std::copy(words.begin(), words.end(), wordImage->GetSlicePointer(0));
    for (const bool perSlice : {false, true}) {
        const cFloatImagePtr a = Random(size, perSlice);
        const std::function<std::vector<float>(cImageMath&)> runs[] = {
            [&](cImageMath& m) {
                const cFloatImagePtr out = Clone(a, perSlice);
                m.SubtractImageSliceByConstant(out, 0.3f, 1);
                m.MultiplyImageSliceByConstant(out, -1.7f, 2);
                return Pixels(out);
            },
            [&](cImageMath& m) {
                const cFloatImagePtr out = Make({size.x, size.y, 1}, false, 9.0f);
                m.MinimumProjection(a, out, 1);
                return Pixels(out);
            },
            [&](cImageMath& m) {
                const cFloatImagePtr out = Make({size.x, size.y, 2}, false, 9.0f);
                m.SumProjection(a, out, 1, 1, -1);
                std::vector<float> values = Pixels(out);
                m.SumProjection(a, out, 1, -1, 1);
                const std::vector<float> more = Pixels(out);
                values.insert(values.end(), more.begin(), more.end());
                return values;
            },
            [&](cImageMath& m) {
                const cFloatImagePtr out = Clone(a, perSlice);
                m.SetImageToConstant(out, -2.5f);
                return Pixels(out);
            },
            [&](cImageMath& m) {
                const cFloatImagePtr fromBytes = Make(size, perSlice),
                                     fromWords = Make(size, !perSlice);
                m.ConvertUnsignedByteToReal(byteImage, fromBytes);
                m.ConvertUnsignedShortToReal(wordImage, fromWords);
                std::vector<float> values = Pixels(fromBytes), raw(2 * count);
                const std::vector<float> more = Pixels(fromWords);
                values.insert(values.end(), more.begin(), more.end());
                m.ConvertUnsignedByteToReal(bytes.data(), raw.data(), int(count));
                m.ConvertUnsignedShortToReal(words.data(), raw.data() + count, int(count));
                values.insert(values.end(), raw.begin(), raw.end());
                return values;
            },
        };
        for (std::size_t r = 0; r < std::size(runs); ++r) {
            SCOPED_TRACE(testing::Message() << "operation " << r << (perSlice ? " per slice" : ""));
            EXPECT_EQ(runs[r](plain), runs[r](vector));
        }
        const cShortImagePtr whole(new cOvdImage<uint16_t>(size, Contiguous3D, "test")),
            boxed(new cOvdImage<uint16_t>(size, Contiguous3D, "test"));
        const cFloatImagePtr wide = Clone(a, perSlice);
        vector.MultiplyImageByConstant(a, 30000.0f, wide);
        const cCountedBox box(new cImageBox{0, 0, 0, size.x - 1, size.y - 1, size.z - 1});
        vector.ConvertRealtoShort(wide, whole);
        vector.ConvertRealtoShortRoi(wide, boxed, box, box);
        EXPECT_TRUE(std::equal(whole->GetSlicePointer(0), whole->GetSlicePointer(0) + count,
                               boxed->GetSlicePointer(0)));
    }
}

// Projections and searches that work per line or per slice in the vector back end.
TEST_F(HighwayTest, ProjectionsAndSearchesWorkPerLineOrSlice) {
    const cImageDimensions size{5, 4, 3};
    const cFloatImagePtr in = Make(size, true, -1.0f);
    At(in, 2, 1, 0) = 3.0f;
    const cFloatImagePtr xy = Make({5, 4, 1}), xz = Make({5, 3, 1}), zy = Make({3, 4, 1});
    vector.TripleMaximumProjection(in, xy, xz, zy);
    EXPECT_EQ(At(xy, 2, 1, 0), 3.0f);
    EXPECT_EQ(At(xy, 0, 0, 0), 0.0f); // xy and xz start at 0
    EXPECT_EQ(At(zy, 0, 1, 0), 3.0f);
    EXPECT_EQ(At(zy, 2, 3, 0), -1.0f); // zy is the line's own maximum

    // The maximum projection along z starts from the first slice; other axes leave out alone.
    const cFloatImagePtr folded = Make({5, 4, 1}, false, 9.0f), side = Make({5, 3, 1}, false, 9.0f);
    vector.MaximumProjection(in, folded, 1);
    vector.MaximumProjection(in, side, 2);
    EXPECT_EQ(At(folded, 0, 0, 0), -1.0f);
    EXPECT_EQ(At(folded, 2, 1, 0), 3.0f);
    EXPECT_EQ(Pixels(side), std::vector<float>(15, 9.0f));

    // Two maxima in one slice count as one position, the first in line order.
    At(in, 4, 3, 0) = 3.0f;
    At(in, 0, 2, 2) = 3.0f;
    cImagePosition upper{}, lower{};
    vector.FindMaxMinPositionOfMaximumValue(in, upper, lower);
    EXPECT_EQ((std::vector<uint32_t>{upper.x, upper.y, upper.z}), (std::vector<uint32_t>{2, 2, 2}));
    EXPECT_EQ((std::vector<uint32_t>{lower.x, lower.y, lower.z}), (std::vector<uint32_t>{0, 1, 0}));

    // The flood fill takes the 4-connected pixels of the seed's value in slice 0 only.
    const cFloatImagePtr region = Make({4, 3, 2}, true, 1.0f);
    At(region, 1, 0, 0) = At(region, 1, 1, 0) = At(region, 0, 1, 0) = 5.0f; // walls
    vector.FloodFillImage(region, 0, 3, 2, 7.0f);
    const std::vector<float> filled = {1, 5, 7, 7, 5, 5, 7, 7, 7, 7, 7, 7};
    const std::vector<float> after = Pixels(region);
    EXPECT_EQ(std::vector<float>(after.begin(), after.begin() + 12), filled);
    EXPECT_EQ(At(region, 0, 0, 1), 1.0f);

    // The transpose moves pairs: pair i of row j lands as pair j of row i.
    const cFloatImagePtr grid = Make({4, 3, 1}), turned = Make({3, 4, 1});
    for (uint32_t i = 0; i < 12; ++i)
        grid->GetSlicePointer(0)[i] = float(i);
    vector.TransposeImage(grid, turned);
    const std::vector<float> pairs = {0, 1, 4, 5, 8, 9, 2, 3, 6, 7, 10, 11};
    EXPECT_EQ(Pixels(turned), pairs);
}

// The shapes of the PSF constraints and the smoothing kernel: the vector forms test squared
// radii and exponentiate whole lines, which agrees with the plain shapes away from ties.
TEST_F(HighwayTest, ShapesAgreeWithThePlainOnes) {
    const cImageDimensions size{13, 10, 7};
    const cFloatImagePtr plainShape = Make(size), vectorShape = Make(size, true);
    plain.Generate3DHourglass(plainShape, 0.53f, 0.71f, 1.13f, 0.8f, 0.9f);
    vector.Generate3DHourglass(vectorShape, 0.53f, 0.71f, 1.13f, 0.8f, 0.9f);
    EXPECT_EQ(Pixels(vectorShape), Pixels(plainShape));

    const cFloatImagePtr plainCone = Random(size, false), vectorCone = Clone(plainCone, true);
    plain.CreateDoubleTruncatedCone(plainCone, 0.5f, 0.5f, 1.0f, 1.5f, 0.75f, 8.0f, 1);
    vector.CreateDoubleTruncatedCone(vectorCone, 0.5f, 0.5f, 1.0f, 1.5f, 0.75f, 8.0f, 1);
    EXPECT_EQ(Pixels(vectorCone), Pixels(plainCone));

    plain.Generate3DGaussian(plainShape, 0.2f, 0.3f, 0.5f, 0.9f, 0.7f, 1.6f);
    vector.Generate3DGaussian(vectorShape, 0.2f, 0.3f, 0.5f, 0.9f, 0.7f, 1.6f);
    const std::vector<float> want = Pixels(plainShape), got = Pixels(vectorShape);
    double sum = 0;
    for (std::size_t i = 0; i < got.size(); ++i) {
        ASSERT_NEAR(got[i], want[i], 1e-6f * want[0] + 2e-6f * want[i]) << i;
        sum += got[i];
    }
    EXPECT_NEAR(sum, 1.0, 1e-6);
}

// With conjugate 1 the imaginary parts of b are negated in place and stay so: the second call
// with the same b multiplies by b itself. An odd width leaves the last float of a line alone.
TEST_F(HighwayTest, ConjugateProductNegatesTheSecondFactorForGood) {
    for (const uint32_t width : {38u, 37u}) {
        const cImageDimensions size{width, 3, 2};
        const cFloatImagePtr a = Random(size, false), b = Random(size, true);
        const cFloatImagePtr conjugated = Make(size), plainB = Clone(b), once = Make(size);
        plain.MultiplyComplexImage(a, plainB, conjugated, 0.5f, 1);
        const cFloatImagePtr vectorB = Clone(b, true), twice = Make(size);
        vector.MultiplyComplexImage(a, vectorB, once, 0.5f, 1);
        EXPECT_EQ(Pixels(once), Pixels(conjugated));
        const cFloatImagePtr direct = Make(size);
        plain.MultiplyComplexImage(a, b, direct, 0.5f, 0);
        vector.MultiplyComplexImage(a, vectorB, twice, 0.5f, 1);
        EXPECT_EQ(Pixels(twice), Pixels(direct));

        // The interleaving copies, with a part missing on either side.
        const cImageDimensions half{width / 2, 3, 2}, even{2 * half.x, 3, 2};
        const cFloatImagePtr re = Random(half, true), plainPairs = Make(even, false, 3.0f),
                             vectorPairs = Make(even, true, 3.0f);
        plain.CopyImageRealToComplex(re, {}, plainPairs);
        vector.CopyImageRealToComplex(re, {}, vectorPairs);
        EXPECT_EQ(Pixels(vectorPairs), Pixels(plainPairs));
        const cFloatImagePtr plainIm = Make(half), vectorIm = Make(half, true);
        plain.CopyImageComplexToReal(plainPairs, {}, plainIm, 0.25f);
        vector.CopyImageComplexToReal(plainPairs, {}, vectorIm, 0.25f);
        EXPECT_EQ(Pixels(vectorIm), Pixels(plainIm));
    }
}

// The kernels are built for several instruction sets and one is chosen at run time; each
// must give the same bits, lines of odd length and sums included. Only the logarithm and the
// exponential may differ in the last place, where some sets fuse their multiply-adds.
TEST_F(HighwayTest, EveryInstructionSetGivesTheSameBits) {
    const cImageDimensions size{45, 7, 3};
    const cFloatImagePtr a = Random(size, false), b = Random(size, true);
    const auto runAll = [&] {
        std::vector<float> results;
        for (const ElementWise& op : ElementWiseOperations()) {
            if (op.tolerance != 0.0f)
                continue;
            const cFloatImagePtr out = Make(size);
            op.run(vector, a, Clone(b), out);
            const std::vector<float> pixels = Pixels(out);
            results.insert(results.end(), pixels.begin(), pixels.end());
        }
        results.push_back(float(vector.SumImageSquared(a)));
        results.push_back(vector.SumOfImageProduct(a, b));
        results.push_back(float(vector.CountPixelInRange(a, -1.0f, 1.0f)));
        return results;
    };
    std::vector<float> first;
    std::vector<std::string> tried;
    for (const int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        tried.push_back(hwy::TargetName(target));
        const std::vector<float> results = runAll();
        if (first.empty())
            first = results;
        EXPECT_EQ(std::memcmp(results.data(), first.data(), first.size() * sizeof(float)), 0)
            << tried.back();
    }
    hwy::SetSupportedTargetsForTest(0);
    EXPECT_GE(tried.size(), 2u);
}

TEST(ImageMathManagerTest, HandsOutTheVectorBackEnd) {
    const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    EXPECT_EQ(math->GetObjectName(), "cImageMathHighway");
}

} // namespace

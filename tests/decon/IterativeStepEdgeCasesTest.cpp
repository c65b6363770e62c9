#include <gtest/gtest.h>

#include <array>
#include <functional>

#include "IterativeTestScene.h"
#include "decon/cFlatSheetImageObjectFirstGuess.h"
#include "decon/cGaussianNoiseSmoothing.h"
#include "decon/cGoldsMethodOptimization.h"
#include "decon/cLineSearchAcceleration.h"
#include "decon/cMlemNonBlindMethodOptimization.h"
#include "decon/cVectorExtrapolationAcceleration.h"
#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"

using namespace Ovidane;
using namespace IterativeTest;
using OvidaneTest::Copy;

// The behaviours at the edges of the iterative steps that a change could silently break.
TEST(IterativeSteps, EdgeBehaviours) {
    const cImageDimensions kSize{16, 16, 8};
    cFFTManager::Instance().AddInstance(kSize, 1, 3);
    cFFTManager::Instance().InitializePlans();
    Scene scene = MakeScene(kSize, 3000.0f, 5.0f, 3);
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();

    const std::pair<const char*, std::function<void()>> cases[] = {
        {"ML-EM lifts an object pixel of 0 to the guard value, Gold leaves it at 0",
         [&] {
             for (cAccelerationPtr acceleration :
                  {cAccelerationPtr(new cLineSearchAcceleration()),
                   cAccelerationPtr(new cVectorExtrapolationAcceleration())}) {
                 cFloatImagePtr object = Copy(scene.data);
                 At(object, 3, 3, 1) = 0.0f;
                 cMlemNonBlindMethodOptimization optimization;
                 optimization.SetAcceleration(acceleration);
                 optimization.SetDimensions(kSize);
                 optimization.Initialize();
                 acceleration->Apply(0);
                 optimization.Apply(object, scene.data, scene.psf);
                 EXPECT_EQ(At(object, 3, 3, 1), 1e-20f) << acceleration->GetObjectName();
             }
             cFloatImagePtr object = Copy(scene.data);
             At(object, 3, 3, 1) = 0.0f;
             cGoldsMethodOptimization gold;
             for (int pass = 0; pass < 3; ++pass)
                 gold.Apply(object, scene.data, scene.psf);
             EXPECT_EQ(At(object, 3, 3, 1), 0.0f);
         }},
        {"an extrapolated pixel moves at most a factor of 2 beyond its plain update, even one "
         "that has just left the floor",
         [&] {
             const auto line = [](std::array<float, 4> v) {
                 return OvidaneTest::MakeImage(
                     {4, 1, 1}, [=](uint32_t x, uint32_t, uint32_t) { return v[x]; });
             };
             cFloatImagePtr plain = line({1e-6f, 50.0f, 8.0f, 3.0f}),
                            previous = line({1e-19f, 10.0f, 64.0f, 1e-20f}),
                            out = line({0, 0, 0, 0});
             math->ExtrapolateWithFloor(plain, previous, out, 1.0f, 1e-20f, 2.0f, 1e-20f);
             const float* x = out->GetSlicePointer(0);
             EXPECT_FLOAT_EQ(x[0], 2e-6f);  // ratio 1e13, held at 2
             EXPECT_FLOAT_EQ(x[1], 100.0f); // ratio 5, held at 2
             EXPECT_FLOAT_EQ(x[2], 4.0f);   // ratio 1/8, held at 1/2
             EXPECT_FLOAT_EQ(x[3], 3.0f);   // no history at the floor: no extrapolation
         }},
        {"the extrapolation factor is held at 1 when the updates grow from pass to pass",
         [&] {
             // Factors e^0.01 then e^0.02: the log-gradient doubles, its ratio is about 2.
             const cImageDimensions size{4, 1, 1};
             cVectorExtrapolationAcceleration extrapolation;
             extrapolation.SetDimensions(size);
             cFloatImagePtr object = OvidaneTest::Constant(size, 1.0f), none;
             for (int pass = 0; pass < 2; ++pass) {
                 extrapolation.Apply(pass);
                 math->SetImageToConstant(extrapolation.GetMultiplicationFactor(),
                                          std::exp(0.01f * float(pass + 1)));
                 extrapolation.Apply(object, none, none);
             }
             EXPECT_EQ(extrapolation.GetLastAlpha(), 1.0f);
             // x = P (P / C): the plain update e^0.03 times its step e^0.02.
             EXPECT_NEAR(At(object, 2, 0, 0), std::exp(0.05f), 1e-5f);
         }},
        {"a Gaussian smoothing acts on every interval-th pass only, and never at interval 0",
         [&] {
             cGaussianNoiseSmoothing everySecond(1.0f, 1.0f, 2.0f, 2.0f, 2);
             cGaussianNoiseSmoothing never(1.0f, 1.0f, 2.0f, 2.0f, 0);
             everySecond.Initialize(kSize);
             never.Initialize(kSize);
             cFloatImagePtr image = Copy(scene.data);
             everySecond.Apply(image, 1);
             never.Apply(image, 2);
             EXPECT_EQ(Pixels(image), Pixels(scene.data));
             everySecond.Apply(image, 2);
             EXPECT_NE(Pixels(image), Pixels(scene.data));
             // A blur moves light, it neither makes nor loses any.
             EXPECT_NEAR(OvidaneTest::Sum(image), OvidaneTest::Sum(scene.data),
                         1e-5 * OvidaneTest::Sum(scene.data));
         }},
        {"a flat-sheet start is the mean of the data everywhere",
         [&] {
             cFloatImagePtr object = OvidaneTest::Constant(kSize, -1.0f);
             cFloatImagePtr psf = scene.psf;
             cFlatSheetImageObjectFirstGuess().Apply(psf, scene.data, object);
             const float mean = float(OvidaneTest::Sum(scene.data) / kSize.Voxels());
             for (float v : Pixels(object))
                 EXPECT_NEAR(v, mean, 1e-4f * mean);
         }},
    };
    for (const auto& [name, check] : cases) {
        SCOPED_TRACE(name);
        check();
    }
    cFFTManager::Instance().ReleaseThreadInstances();
}

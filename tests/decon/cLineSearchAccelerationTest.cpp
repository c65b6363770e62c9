#include <gtest/gtest.h>

#include "IterativeTestScene.h"
#include "decon/cLineSearchAcceleration.h"
#include "decon/cMlemNonBlindMethodOptimization.h"
#include "math/cFFTManager.h"
#include "math/cImageMathManager.h"

using namespace Ovidane;
using namespace IterativeTest;

// The line search may only take steps that raise the Poisson log-likelihood of the data, as
// the plain ML-EM step does; a step judged on the wrong pixels, a limit taken without a
// look, or an overshoot would let it fall. A stack with guard bands, and a single plane,
// whose likelihood needs the two-plane work image.
TEST(cLineSearchAcceleration, PoissonLikelihoodNeverFallsFromPassToPass) {
    struct Case {
        cImageDimensions size;
        uint32_t guard[6];
    };
    const Case cases[] = {{{24, 20, 12}, {2, 1, 1, 2, 2, 2}}, {{32, 32, 1}, {0, 0, 0, 0, 0, 0}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.size.z);
        cFFTManager::Instance().AddInstance(c.size, 1, 3);
        cFFTManager::Instance().InitializePlans();
        Scene scene = MakeScene(c.size, 4000.0f, 10.0f, 17);

        cCountedPtr<cLineSearchAcceleration> search(new cLineSearchAcceleration());
        const uint32_t* g = c.guard;
        search->SetGuardBands(g[0], g[1], g[2], g[3], g[4], g[5]);
        cMlemNonBlindMethodOptimization optimization;
        optimization.SetAcceleration(search);
        optimization.SetDimensions(c.size);
        optimization.Initialize();

        cFloatImagePtr object = OvidaneTest::Copy(scene.data);
        double previous = PoissonLogLikelihood(scene.data, object, scene.psf, c.guard);
        bool wentFurther = false;
        for (int32_t pass = 0; pass < 15; ++pass) {
            search->Apply(pass);
            optimization.Apply(object, scene.data, scene.psf);
            const double now = PoissonLogLikelihood(scene.data, object, scene.psf, c.guard);
            // The sums are double, the reblurred image single precision.
            EXPECT_GE(now, previous - 1e-7 * std::fabs(previous)) << "pass " << pass;
            previous = now;
            wentFurther = wentFurther || search->GetLastStep() > 1.0f;
        }
        EXPECT_TRUE(wentFurther);
        cFFTManager::Instance().ReleaseThreadInstances();
    }
}

// A likelihood that rises however far the step goes: the step stops where the first pixel
// of the object reaches 0. With a delta PSF the reblurred image is the object itself; the
// plain update halves one pixel and raises the others by half, so that pixel reaches 0 at
// twice the plain step.
TEST(cLineSearchAcceleration, StepEndsWhereTheFirstPixelReachesZero) {
    const cImageDimensions size{4, 4, 2};
    cFFTManager::Instance().AddInstance(size, 1, 3);
    cFFTManager::Instance().InitializePlans();
    cFloatImagePtr object = OvidaneTest::Constant(size, 1.0f);
    cFloatImagePtr data = OvidaneTest::Constant(size, 100.0f);
    cFloatImagePtr psf = OvidaneTest::Constant(size, 0.0f);
    At(psf, 0, 0, 0) = 1.0f;
    At(data, 1, 2, 1) = 0.0f;
    cLineSearchAcceleration search;
    search.SetDimensions(size);
    cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    math->CopyImage(object, search.GetReblurredImage());
    math->SetImageToConstant(search.GetNewImageEstimate(), 1.5f);
    At(search.GetNewImageEstimate(), 1, 2, 1) = 0.5f;
    search.Apply(object, data, psf);
    EXPECT_EQ(search.GetLastStep(), 2.0f);
    EXPECT_EQ(At(object, 1, 2, 1), 0.0f);
    EXPECT_EQ(At(object, 3, 3, 0), 2.0f);
    cFFTManager::Instance().ReleaseThreadInstances();
}

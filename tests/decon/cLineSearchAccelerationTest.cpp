#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "IterativeTestScene.h"
#include "decon/cLineSearchAcceleration.h"
#include "decon/cMlemNonBlindMethodOptimization.h"
#include "math/cFFTManager.h"

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
            // A step stops where the first pixel reaches 0, never beyond.
            const std::vector<float> values = Pixels(object);
            EXPECT_GE(*std::min_element(values.begin(), values.end()), 0.0f) << "pass " << pass;
            previous = now;
            wentFurther = wentFurther || search->GetLastStep() > 1.0f;
        }
        EXPECT_TRUE(wentFurther);
        cFFTManager::Instance().ReleaseThreadInstances();
    }
}

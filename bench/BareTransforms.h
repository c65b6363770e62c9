#pragma once
// Plain FFTW transforms of one size, planned as the transform service plans its own, so that
// benchmarks can set the service's work against the bare library's in the same run.
#include <fftw3.h>

#include <random>

#include "core/cImageDimensions.h"
#include "core/cWorkerThreads.h"
#include "math/cFFTFFTW.h"

namespace Ovidane {

// Plain FFTW arrays and plans of one size, made as the service makes its own.
class BareTransforms {
public:
    explicit BareTransforms(const cImageDimensions& size) {
        const std::size_t real = size.Voxels(),
                          complex = std::size_t(size.x / 2 + 1) * size.y * size.z;
        mIn = fftwf_alloc_real(real);
        mOut = fftwf_alloc_real(real);
        mFirst = fftwf_alloc_complex(complex);
        mSecond = fftwf_alloc_complex(complex);
        const int x = int(size.x), y = int(size.y), z = int(size.z);
        const cFFTFFTW::PlannerLock lock;
        cFFTFFTW::PreparePlanner();
        mForward = fftwf_plan_dft_r2c_3d(z, y, x, mIn, mFirst,
                                         cFFTFFTW::kPlannerFlags | FFTW_PRESERVE_INPUT);
        mInverse = fftwf_plan_dft_c2r_3d(z, y, x, mSecond, mOut, cFFTFFTW::kPlannerFlags);
        std::mt19937 generator(7);
        std::uniform_real_distribution<float> value(0.0f, 1.0f);
        for (std::size_t i = 0; i < real; ++i)
            mIn[i] = value(generator);
    }
    ~BareTransforms() {
        const cFFTFFTW::PlannerLock lock;
        fftwf_destroy_plan(mForward);
        fftwf_destroy_plan(mInverse);
        fftwf_free(mIn);
        fftwf_free(mOut);
        fftwf_free(mFirst);
        fftwf_free(mSecond);
    }
    void Forward(bool second) { fftwf_execute_dft_r2c(mForward, mIn, second ? mSecond : mFirst); }
    void Inverse() { fftwf_execute(mInverse); }

private:
    float* mIn;
    float* mOut;
    fftwf_complex* mFirst;
    fftwf_complex* mSecond;
    fftwf_plan mForward;
    fftwf_plan mInverse;
};

} // namespace Ovidane

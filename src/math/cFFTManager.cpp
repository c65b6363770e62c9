#include "math/cFFTManager.h"

#include <string>

#include "core/cSingletonHolder.h"
#include "core/cThreadIdManager.h"
#include "math/cDefaultFFTPerformancePolicy.h"
#include "math/cFFTFFTW.h"

namespace Ovidane {

cFFTManager::cFFTManager() : cOvdObject("cFFTManager") {
    mLibraries.push_back(cFFTPtr(new cFFTFFTW()));
}

cFFTManager::~cFFTManager() = default;

cFFTManager& cFFTManager::Instance() {
    return cSingletonHolder<cFFTManager>::Instance();
}

std::vector<cFFTPtr>& cFFTManager::ThreadInstances() {
    return mInstances[cThreadIdManager::Instance().CurrentLogicalThreadId()];
}

void cFFTManager::AddInstance(const cImageDimensions& dimensions, int first, int second) {
    Guard([&] {
        const Lock lock;
        if (!mPolicy)
            mPolicy = new cDefaultFFTPerformancePolicy();
        std::vector<cFFTPtr>& instances = ThreadInstances();
        for (const cFFTPtr& instance : instances)
            if (instance->GetDimensions() == dimensions)
                return;
        if (mPolicy->ChooseLibrary(dimensions, mLibraries) == cFFTFFTW::kLibraryId)
            instances.push_back(cFFTPtr(new cFFTFFTW(dimensions, first, second)));
    });
}

void cFFTManager::InitializePlans() {
    Guard([&] {
        const Lock lock;
        for (const cFFTPtr& instance : ThreadInstances())
            instance->InitializePlans();
    });
}

void cFFTManager::GetMemoryRequests(std::vector<cMemoryRequest>& list) {
    Guard([&] {
        const Lock lock;
        for (const cFFTPtr& instance : ThreadInstances())
            instance->GetMemoryRequests(list);
    });
}

void cFFTManager::ReleaseThreadInstances() {
    Guard([&] {
        const Lock lock;
        std::vector<cFFTPtr>& instances = ThreadInstances();
        for (const cFFTPtr& instance : instances)
            instance->ReleasePlans();
        instances.clear();
    });
}

cFFTPtr cFFTManager::GetInstance(const cImageDimensions& dimensions) {
    return Guard([&] {
        const Lock lock;
        for (const cFFTPtr& instance : ThreadInstances()) {
            const cImageDimensions& size = instance->GetDimensions();
            const bool planeFits =
                dimensions.z == 1 && size.x == dimensions.x && size.y == dimensions.y;
            if (planeFits || size == dimensions)
                return instance;
        }
        return cFFTPtr();
    });
}

std::size_t cFFTManager::GetThreadInstanceCount() {
    return Guard([&] {
        const Lock lock;
        return ThreadInstances().size();
    });
}

cFFTPtr cFFTManager::InstanceFor(const cImageDimensions& dimensions, const char* operation) {
    cFFTPtr instance = GetInstance(dimensions);
    if (!instance)
        Fail(std::string("No FFT Library Instance for given Dimensions in ") + operation, 2);
    return instance;
}

cFFTPtr cFFTManager::InstanceFor(const cFloatImagePtr& first, const char* operation) {
    if (!first)
        Fail(std::string("NULL input image in ") + operation, 2);
    return InstanceFor(first->GetDimensions(), operation);
}

void cFFTManager::Convolve(const cFloatImagePtr& a, const cFloatImagePtr& b,
                           const cFloatImagePtr& result, int mode) {
    Guard([&] { InstanceFor(a, "Convolve")->Convolve(a, b, result, mode); });
}

void cFFTManager::WienerFilter(const cFloatImagePtr& a, const cFloatImagePtr& b,
                               const cFloatImagePtr& result, float k) {
    Guard([&] { InstanceFor(a, "WienerFilter")->WienerFilter(a, b, result, k); });
}

void cFFTManager::WienerFilterKeptImage(const cFloatImagePtr& keptImage, const cFloatImagePtr& b,
                                        const cFloatImagePtr& result, float k) {
    Guard([&] {
        InstanceFor(b, "WienerFilterKeptImage")->WienerFilterKeptImage(keptImage, b, result, k);
    });
}

void cFFTManager::ForwardHalfSpectrum(const cFloatImagePtr& in, const cFloatImagePtr& out) {
    Guard([&] { InstanceFor(in, "ForwardHalfSpectrum")->ForwardHalfSpectrum(in, out); });
}

void cFFTManager::ConvolveHalfSpectrum(const cFloatImagePtr& a, const cFloatImagePtr& spectrum,
                                       const cFloatImagePtr& result, int mode) {
    Guard([&] {
        InstanceFor(a, "ConvolveHalfSpectrum")->ConvolveHalfSpectrum(a, spectrum, result, mode);
    });
}

void cFFTManager::KeepKernel(const cFloatImagePtr& kernel, const cFloatImagePtr& kept) {
    Guard([&] { InstanceFor(kernel, "KeepKernel")->KeepKernel(kernel, kept); });
}

void cFFTManager::ConvolveKept(const cFloatImagePtr& a, const cFloatImagePtr& kept,
                               const cFloatImagePtr& result, int mode) {
    Guard([&] { InstanceFor(a, "ConvolveKept")->ConvolveKept(a, kept, result, mode); });
}

// The lookup names the operation Convolve, as the regular convolution does.
void cFFTManager::ConvolveOTF(const cFloatImagePtr& a, const cFloatImagePtr& b,
                              const cFloatImagePtr& result, int mode) {
    Guard([&] { InstanceFor(a, "Convolve")->ConvolveOTF(a, b, result, mode); });
}

void cFFTManager::FFTPacked(const cFloatImagePtr& in, const cFloatImagePtr& out, int direction) {
    Guard([&] { InstanceFor(in, "FFTPacked")->FFTPacked(in, out, direction); });
}

void cFFTManager::FFT(const cFloatImagePtr& re, const cFloatImagePtr& im,
                      const cFloatImagePtr& outRe, const cFloatImagePtr& outIm, int direction) {
    Guard([&] { InstanceFor(re, "FFT")->FFT(re, im, outRe, outIm, direction); });
}

void cFFTManager::FFTFwd(const cFloatImagePtr& re, const cFloatImagePtr& im,
                         const cFloatImagePtr& outRe, const cFloatImagePtr& outIm) {
    Guard([&] { InstanceFor(re, "FFTFwd")->FFTFwd(re, im, outRe, outIm); });
}

void cFFTManager::FFTInv(const cFloatImagePtr& re, const cFloatImagePtr& im,
                         const cFloatImagePtr& outRe, const cFloatImagePtr& outIm) {
    Guard([&] { InstanceFor(re, "FFTInv")->FFTInv(re, im, outRe, outIm); });
}

void cFFTManager::FFTComplex(const cFloatImagePtr& in, const cFloatImagePtr& out, int direction) {
    Guard([&] { InstanceFor(in, "FFTComplex")->FFTComplex(in, out, direction); });
}

void cFFTManager::GetPackedDimensions(const cImageDimensions& dimensions, cImageDimensions& out) {
    Guard([&] {
        InstanceFor(dimensions, "GetPackedDimensions")->GetPackedDimensions(dimensions, out);
    });
}

void cFFTManager::GetComplexDimensions(const cImageDimensions& dimensions, cImageDimensions& out) {
    Guard([&] {
        InstanceFor(dimensions, "GetComplexDimensions")->GetComplexDimensions(dimensions, out);
    });
}

} // namespace Ovidane

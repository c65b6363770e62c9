#include "math/cDefaultFFTPerformancePolicy.h"

#include "core/cMessageSink.h"

namespace Ovidane {

int cDefaultFFTPerformancePolicy::ChooseLibrary(const cImageDimensions& dimensions,
                                                const std::vector<cFFTPtr>& libraries) {
    return Guard([&] {
        if (libraries.empty()) {
            cMessageSink::Stream() << "A Decision Can not be made on which library to choose "
                                      "because there are no libraries available to choose from!"
                                   << std::endl;
            return kNoLibrary;
        }
        const cFFTPtr* best = &libraries.front();
        unsigned bestRating = (*best)->GetPerformanceRating(dimensions);
        for (const cFFTPtr& library : libraries) {
            const unsigned rating = library->GetPerformanceRating(dimensions);
            if (rating < bestRating) {
                best = &library;
                bestRating = rating;
            }
        }
        return (*best)->GetLibraryId();
    });
}

} // namespace Ovidane

#include "largevolume/cStaticSubvolumeCalculator.h"

namespace Ovidane {

int cStaticSubvolumeCalculator::CalculateSubvolumes() {
    return Guard([&] {
        constexpr int kLimitXY = 300;
        constexpr int kLimitZ = 100;
        // Stacks thinner than this are not cut in z.
        constexpr uint32_t kShortestZForMontage = 90;

        const uint32_t overlap = CountingOverlap();
        const uint32_t z = CountingDepth();
        auto within = [this](int limit) {
            return [this, limit](uint64_t candidate) {
                return GetFastSize(AsSize(candidate), -1) <= limit;
            };
        };

        cImageDimensions count{1, 1, 1};
        if (mXYMontage) {
            const auto nx = FindCount(mImageSize.x, overlap, mXYGuardBand, within(kLimitXY));
            const auto ny = FindCount(mImageSize.y, overlap, mXYGuardBand, within(kLimitXY));
            if (!nx || !ny)
                return 1;
            count.x = *nx;
            count.y = *ny;
        }
        if (mZMontage && z >= kShortestZForMontage) {
            const auto nz = FindCount(z, overlap, EffectiveZGuardBand(), within(kLimitZ));
            if (!nz)
                return 1;
            count.z = *nz;
        }
        return FinishSubvolumes(count, overlap);
    });
}

} // namespace Ovidane

#include "math/cImageMathManager.h"

#include "core/cSingletonHolder.h"
#include "core/cThreadIdManager.h"
#include "math/cImageMathGeneric.h"
#include "math/cImageMathHighway.h"

namespace Ovidane {

// The thread that makes the manager gets its instances at once.
cImageMathManager::cImageMathManager() {
    const Lock lock;
    InstanceFor(cThreadIdManager::Instance().CurrentLogicalThreadId());
}

cImageMathManager& cImageMathManager::Instance() {
    return cSingletonHolder<cImageMathManager>::Instance();
}

cImageMathPtr cImageMathManager::GetImageMath() {
    return Guard([&] {
        const Lock lock;
        return InstanceFor(cThreadIdManager::Instance().CurrentLogicalThreadId());
    });
}

// Each logical thread keeps its instances until the process ends; they hold no state
// between calls, so nothing is gained by removing them.
cImageMathPtr cImageMathManager::InstanceFor(uint32_t logicalThreadId) {
    const auto known = mFront.find(logicalThreadId);
    if (known != mFront.end())
        return known->second;
    const cImageMathPtr fallback(new cImageMathGeneric);
    mFallback[logicalThreadId] = fallback;
    const cImageMathPtr front(new cImageMathHighway(fallback));
    mFront[logicalThreadId] = front;
    return front;
}

} // namespace Ovidane

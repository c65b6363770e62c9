#pragma once
#include <cstdint>
#include <map>

#include "core/ClassLevelLockable.h"
#include "core/cOvdObject.h"
#include "math/cImageMath.h"

namespace Ovidane {

// Hands each logical thread its own image math. Callers fetch it anew at the place of use
// and keep it no longer than the block that needs it.
class cImageMathManager : public cOvdObject, private ClassLevelLockable<cImageMathManager> {
public:
    cImageMathManager();
    static cImageMathManager& Instance();

    cImageMathPtr GetImageMath();

private:
    using Lock = ClassLevelLockable<cImageMathManager>::Lock;
    cImageMathPtr InstanceFor(uint32_t logicalThreadId);

    std::map<uint32_t, cImageMathPtr> mFront;
    std::map<uint32_t, cImageMathPtr> mFallback;
};

} // namespace Ovidane

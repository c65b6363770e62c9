#pragma once
#include <cstdint>
#include <string>
#include <utility>

#include "core/cOvdObject.h"
#include "image/cOvdImage.h"

namespace Ovidane {

// One step of a slice-by-slice pass over a raw stack file. The pass hands every slice to
// each action in turn; an action may work on the slice in place or replace the pointer by
// an image of its own (of another size if it likes), which is then what later actions see
// and what the pass writes. Results are 0 or a return code that ends the pass.
class cProcessingAction : public cOvdObject {
public:
    cProcessingAction() : cOvdObject("cProcessingAction") {}
    explicit cProcessingAction(std::string objectName) : cOvdObject(std::move(objectName)) {}
    ~cProcessingAction() override = default;

    // Called for slice z, in slice order, once per slice.
    virtual int Process(cFloatImagePtr& image, uint32_t z) = 0;
    // Called once after the last slice.
    virtual int Finish() = 0;
};

using cProcessingActionPtr = cCountedPtr<cProcessingAction>;

} // namespace Ovidane

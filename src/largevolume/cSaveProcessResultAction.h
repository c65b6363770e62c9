#pragma once
#include <cstdint>
#include <string>

#include "largevolume/cProcessingAction.h"
#include "largevolume/cTypedSliceWriter.h"

namespace Ovidane {

// Taps a pass: writes each slice as it stands at this point of the action list to a file
// of its own, as 8-bit, 16-bit or float elements, and leaves the slice unchanged. Placed
// between two actions, it keeps an intermediate result of a pass.
class cSaveProcessResultAction : public cProcessingAction {
public:
    // Makes a writer on `fileName` and opens it. outputType as for the pass's own output:
    // 1 8-bit, 2 16-bit, 4 float; any other type writes nothing.
    cSaveProcessResultAction(const std::string& fileName, uint32_t outputType);

    int Process(cFloatImagePtr& image, uint32_t z) override;
    // Closes the file. 0, or 5 when a slice didn't reach the file whole.
    int Finish() override;

private:
    cCountedPtr<cTypedSliceWriter> mWriter;
    uint32_t mOutputType;
};

} // namespace Ovidane

#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "core/cCountedPtr.h"
#include "core/cOvdObject.h"
#include "io/cUnmanagedRawFileReader.h"
#include "largevolume/cProcessingAction.h"
#include "largevolume/cTypedSliceWriter.h"

namespace Ovidane {

// Streams a raw float stack through a list of actions, one z slice at a time, and writes
// what comes out of the last action to a second file if one is set. This is how every
// step that must touch each pixel of a stack too large for memory is done: statistics,
// binning, resampling, inversion. Only slices are ever in memory, the input is read once
// in file order and the output written in the same order, so both files stream.
//
// Use: construct over the input (or with an empty name and SetInput later), add actions,
// optionally SetOutput and SetOutputType, Run. A successful Run closes both files, so a
// second pass needs SetInput (and SetOutput) again; the actions stay until Close().
class cLargeVolumeProcessingFramework : public cOvdObject {
public:
    // Results of Run besides 0 and the results of the actions.
    enum : int {
        kNoInput = 1,           // no reader, or an input file too short for the stack
        kOutputFailed = 5,      // the output file didn't take a slice whole (a full disk)
        kUnknownOutputType = 9, // an output type other than 1, 2 or 4 with an output file
    };

    // Stores the stack's size; with a non-empty name, makes a reader of that size on the
    // file and opens it.
    cLargeVolumeProcessingFramework(const std::string& fileName, uint32_t width, uint32_t height,
                                    uint32_t depth);
    ~cLargeVolumeProcessingFramework() override;

    // Replaces the reader (or the writer) by a new one on `name`, of the stored size.
    void SetInput(const std::string& name);
    void SetOutput(const std::string& name);

    // Bytes per pixel of the input file: 4 float (the default), 2 or 1 for unsigned 16-bit
    // or 8-bit pixels, which the pass converts to float by value as it reads them. For the
    // reader in hand and those SetInput makes later.
    void SetInputPixelBytes(uint32_t bytes);

    // Element type of the output file: 1 8-bit, 2 16-bit, 4 float (the default).
    void SetOutputType(uint32_t type) { mOutputType = type; }
    uint32_t GetOutputType() const { return mOutputType; }

    // Appends an action. The list doesn't own what it gets by raw pointer: the caller
    // keeps such an action alive until Close() or the end of the last Run(). An action
    // given by counted pointer is held until Close().
    virtual void AddAction(cProcessingAction* action);
    virtual void AddAction(const cProcessingActionPtr& action);
    // Removes all actions and closes and drops reader and writer. Answers 0.
    virtual int Close();
    virtual uint32_t GetActionCount() const { return static_cast<uint32_t>(mActions.size()); }

    // One pass: every slice z of the input goes through Process of each action in list
    // order, the result to the output; then Finish of each action in list order. Answers
    // 0; 0 as well with no actions, when nothing is read or written; kNoInput before any
    // action is called when there is no input to read; kUnknownOutputType, likewise before
    // anything is read; the first non-zero result of an action, or kOutputFailed, at once.
    // After a failure both files stay open until Close() or a new SetInput and SetOutput.
    virtual int Run();

private:
    bool InputHoldsStack() const;

    uint32_t mWidth = 1;
    uint32_t mHeight = 1;
    uint32_t mDepth = 1;
    uint32_t mInputPixelBytes = sizeof(float);
    cCountedPtr<cUnmanagedRawFileReader> mReader;
    cCountedPtr<cTypedSliceWriter> mWriter;
    std::vector<cProcessingAction*> mActions;
    // Keeps the actions alive that were given by counted pointer.
    std::vector<cProcessingActionPtr> mHeldActions;
    uint32_t mOutputType = cTypedSliceWriter::kFloat;
};

} // namespace Ovidane

#pragma once
#include <cstdint>
#include <string>

#include "core/cCountedPtr.h"
#include "core/cDeconLog.h"
#include "core/cOvdObject.h"
#include "image/cOvdImage.h"
#include "math/cImageMath.h"

namespace Ovidane {

// Says what a run's input really is before anything else looks at the stack: the whole
// volume, or one plane made from it (a slice, a projection along z). A source that reduces
// the stack writes the plane to a temporary float file and rewrites the log, so that every
// later stage sees an ordinary stack of depth 1:
//     DEC_SPARAMS_ORIGINAL_FILE      the temporary file
//     DEC_IPARAMS_SUBVOLUME_DEPTH    1
//     DEC_RPARAMS_Z_SPACING          0
// Everything else in the log stays as it was. The stack is read from
// DEC_SPARAMS_ORIGINAL_FILE with the size DEC_IPARAMS_SUBVOLUME_WIDTH, _HEIGHT, _DEPTH,
// one slice at a time, in file order; at most two slices are in memory.
//
// Refusals (cException, code 2) come before any read: sizes that aren't positive, a file
// too short for the stack. A temporary file that can't be made or written fails with
// code 1. The input file is never changed.
class cInitialImageSource : public cOvdObject {
public:
    explicit cInitialImageSource(cCountedPtr<cDeconLog> log, std::string objectName);
    ~cInitialImageSource() override = default;

    virtual void Generate() = 0;

protected:
    // The stack the log describes, checked as above.
    struct cStackFile {
        std::string name;
        uint32_t width = 0;
        uint32_t height = 0;
        uint32_t depth = 0;
    };
    cStackFile CheckedStack() const;

    cFloatImagePtr MakePlane(const cStackFile& stack) const;

    // Combines the slices one after the other into an accumulator that starts at `start`:
    // accumulator := step(slice, accumulator). Then publishes the accumulator.
    using cStep = void (cImageMath::*)(const cFloatImagePtr&, const cFloatImagePtr&,
                                       const cFloatImagePtr&);
    void Project(float start, cStep step);

    // Writes the plane to a new temporary file and points the log at it.
    void Publish(const cFloatImagePtr& plane);

    cCountedPtr<cDeconLog> mLog;
};

} // namespace Ovidane

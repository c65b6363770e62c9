#pragma once
#include <string>

#include "decon/cObjectFirstGuess.h"

namespace Ovidane {

// Starts the restoration from an estimate kept in a file: raw 32-bit floats, no header,
// plane after plane, of exactly the object's size (the result of an earlier run, say).
//
// A file that cannot be opened or holds fewer pixels than the object ends the run with a
// cException (code 2) that names the file. The caller asked for this start; carrying on
// from the unchanged object or from a partly filled one would hand back a result that
// silently started somewhere else.
class cLoadFileObjectFirstGuess : public cObjectFirstGuess {
public:
    explicit cLoadFileObjectFirstGuess(std::string fileName);

    void Apply(cFloatImagePtr& psf, cFloatImagePtr& original, cFloatImagePtr& object) override;

    const std::string& GetFileName() const { return mFileName; }

private:
    std::string mFileName;
};

} // namespace Ovidane

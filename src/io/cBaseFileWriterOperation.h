#pragma once
#include <string>
#include <utility>

#include "io/cBaseFileIOOperation.h"

namespace Ovidane {

// Common base of everything that writes stack files.
class cBaseFileWriterOperation : public cBaseFileIOOperation {
public:
    explicit cBaseFileWriterOperation(std::string fileName)
        : cBaseFileIOOperation(std::move(fileName)) {}
};

} // namespace Ovidane

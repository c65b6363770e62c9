#pragma once
#include <string>
#include <utility>

#include "io/cBaseFileIOOperation.h"

namespace Ovidane {

// Common base of everything that reads stack files.
class cBaseFileReaderOperation : public cBaseFileIOOperation {
public:
    explicit cBaseFileReaderOperation(std::string fileName)
        : cBaseFileIOOperation(std::move(fileName)) {}
};

} // namespace Ovidane

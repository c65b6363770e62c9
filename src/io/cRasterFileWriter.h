#pragma once
#include <string>
#include <utility>

#include "io/cBaseFileWriterOperation.h"

namespace Ovidane {

// A writer of raster files: opened, used, closed.
class cRasterFileWriter : public cBaseFileWriterOperation {
public:
    explicit cRasterFileWriter(std::string fileName)
        : cBaseFileWriterOperation(std::move(fileName)) {}

    virtual bool Open() = 0;
    virtual bool Close() = 0;
};

} // namespace Ovidane

#pragma once
#include <string>
#include <utility>

#include "io/cBaseFileReaderOperation.h"

namespace Ovidane {

// A reader of raster files: opened, used, closed.
class cRasterFileReader : public cBaseFileReaderOperation {
public:
    explicit cRasterFileReader(std::string fileName)
        : cBaseFileReaderOperation(std::move(fileName)) {}

    virtual bool Open() = 0;
    virtual bool Close() = 0;
};

} // namespace Ovidane

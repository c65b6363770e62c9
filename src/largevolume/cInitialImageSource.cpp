#include "largevolume/cInitialImageSource.h"

#include <utility>

#include "io/cTempFileGenerator.h"
#include "io/cUnmanagedRawFileReader.h"
#include "io/cUnmanagedRawFileWriter.h"
#include "largevolume/StackFileCheck.h"
#include "math/cImageMathManager.h"

namespace Ovidane {

cInitialImageSource::cInitialImageSource(cCountedPtr<cDeconLog> log, std::string objectName)
    : cOvdObject(std::move(objectName)), mLog(std::move(log)) {}

cInitialImageSource::cStackFile cInitialImageSource::CheckedStack() const {
    const cDeconParameter& parameters = mLog->GetParameters();
    const int32_t width = parameters.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH);
    const int32_t height = parameters.GetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT);
    const int32_t depth = parameters.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH);
    if (width <= 0 || height <= 0 || depth <= 0)
        Fail("Invalid Dimensions in Generate", OVD_ERR_PARAMETER);
    cStackFile stack{parameters.GetString(DEC_SPARAMS_ORIGINAL_FILE), uint32_t(width),
                     uint32_t(height), uint32_t(depth)};
    if (!FileHoldsStack(stack.name, stack.width, stack.height, stack.depth, sizeof(float)))
        Fail("Input file shorter than the stack in Generate", OVD_ERR_PARAMETER);
    return stack;
}

cFloatImagePtr cInitialImageSource::MakePlane(const cStackFile& stack) const {
    return new cOvdImage<float>(cImageDimensions{stack.width, stack.height, 1}, Contiguous3D,
                                GetObjectName());
}

void cInitialImageSource::Project(float start, cStep step) {
    const cStackFile stack = CheckedStack();
    const cFloatImagePtr slice = MakePlane(stack);
    const cFloatImagePtr accumulator = MakePlane(stack);
    const cImageMathPtr math = cImageMathManager::Instance().GetImageMath();
    math->SetImageToConstant(accumulator, start);

    cUnmanagedRawFileReader reader(stack.name, stack.width, stack.height, stack.depth);
    reader.Open();
    for (uint32_t z = 0; z < stack.depth; ++z) {
        // A whole slice into a contiguous plane is one read.
        if (!reader.ReadRegionFloat(slice, 0, 0, z, stack.width - 1, stack.height - 1, z))
            Fail("Input file shorter than the stack in Generate", OVD_ERR_PARAMETER);
        ((*math).*step)(slice, accumulator, accumulator);
    }
    reader.Close();
    Publish(accumulator);
}

void cInitialImageSource::Publish(const cFloatImagePtr& plane) {
    const char* name = cTempFileGenerator::Instance().Generate();
    if (!name)
        Fail("Cannot create a temporary file in Generate", OVD_ERR_FOREIGN);
    cUnmanagedRawFileWriter writer(name);
    writer.Open();
    writer.Write(plane);
    if (!writer.Close() || !writer.GetLastError().empty())
        Fail("Cannot write the temporary file in Generate", OVD_ERR_FOREIGN);

    cDeconParameter& parameters = mLog->GetParameters();
    parameters.SetString(DEC_SPARAMS_ORIGINAL_FILE, name);
    parameters.SetInt(DEC_IPARAMS_SUBVOLUME_DEPTH, 1);
    parameters.SetReal(DEC_RPARAMS_Z_SPACING, 0.0f);
}

} // namespace Ovidane

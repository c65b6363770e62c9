#include "largevolume/cSliceInitialImageSource.h"

#include <utility>

#include "io/cUnmanagedRawFileReader.h"

namespace Ovidane {

cSliceInitialImageSource::cSliceInitialImageSource(cCountedPtr<cDeconLog> log)
    : cInitialImageSource(std::move(log), "cSliceInitialImageSource") {}

void cSliceInitialImageSource::Generate() {
    Guard([&] {
        const int32_t index = mLog->GetParameters().GetInt(DEC_IPARAMS_SLICE_INDEX);
        const cStackFile stack = CheckedStack();
        // Refused before the read: a slice past the depth would read beyond the stack.
        if (index < 0 || uint32_t(index) >= stack.depth)
            Fail("Invalid slice index in Generate", OVD_ERR_PARAMETER);
        const uint32_t z = uint32_t(index);
        const cFloatImagePtr plane = MakePlane(stack);
        cUnmanagedRawFileReader reader(stack.name, stack.width, stack.height, stack.depth);
        reader.Open();
        if (!reader.ReadRegionFloat(plane, 0, 0, z, stack.width - 1, stack.height - 1, z))
            Fail("Input file shorter than the stack in Generate", OVD_ERR_PARAMETER);
        reader.Close();
        Publish(plane);
    });
}

} // namespace Ovidane

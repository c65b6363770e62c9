#include "PsfModelOptions.h"

#include <cmath>

#include "TiffStack.h"

namespace ovdtool {

void AddPsfModelOptions(CLI::App* command, PsfModelOptions& options) {
    command
        ->add_option("--psf-model", options.model,
                     "theoretical PSF: specified, or exact (non-paraxial scalar integral)")
        ->check(CLI::IsMember({"specified", "exact"}))
        ->capture_default_str();
    command->add_option("--sample-ri", options.sampleIndex,
                        "exact model: refractive index of the sample, 1-5 (default: --ri)");
    command
        ->add_option("--focus-depth", options.depth,
                     "exact model: depth of the focus below the coverslip, um (0-10000)")
        ->capture_default_str();
}

ovdStructPsfModel PsfModelOf(const PsfModelOptions& options) {
    // Checked here, before the narrowing to float, with the library's ranges.
    if (!(options.sampleIndex == 0.0 || (options.sampleIndex >= 1.0 && options.sampleIndex <= 5.0)))
        throw StackError("--sample-ri must lie in 1 to 5");
    if (!(options.depth >= 0.0 && options.depth <= 10000.0))
        throw StackError("--focus-depth must lie in 0 to 10000 micrometres");
    ovdStructPsfModel model;
    ovdInitStructPsfModel(&model);
    model.nModel = options.model == "exact" ? OVD_PSF_MODEL_EXACT : OVD_PSF_MODEL_SPECIFIED;
    model.fSampleIndex = float(options.sampleIndex);
    model.fDepth = float(options.depth);
    return model;
}

} // namespace ovdtool

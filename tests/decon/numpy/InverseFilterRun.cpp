// Restores one stack with the inverse filter, as the run stages restore one subvolume:
// a hand-made subvolume log, then the constructor, SetSubvolumeProgress, Initialize, SetUp,
// Prepare and Run. inverse_filter_check.py writes the stack, runs this program and checks
// the result file.
//
// Arguments, each key=value:
//   input, output     raw float stacks (x fastest, native byte order)
//   size=X,Y,Z        the stack's size; spacing=dx,dy,dz in micrometres
//   noise=50..54      the noise level; factor=F the regularisation factor
//   guard=low,high    z guard bands of the subvolume (default 0,0)
//   psf=FILE          a measured PSF of the stack's size and spacing, centred in its file;
//                     without it the theoretical PSF of na=, n=, lambda= (widefield)
//   phase=0|1         the stack shows a phase object
// Prints one line "status calls N" on success; exit code 1 with the failure otherwise.
#include <cstdlib>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "core/cDeconLog.h"
#include "core/cException.h"
#include "core/cMessageSink.h"
#include "decon/cInverseFilterDeconAlgorithm.h"
#include "interface/ovdinf01.h"

using namespace Ovidane;

namespace {

int gStatusCalls = 0;

uint16_t CountStatus(ovdStructInvFilterStatus* status, void* /*userData*/) {
    ++gStatusCalls;
    (void)status;
    return OVD_STATUS_CONTINUE;
}

std::vector<float> Numbers(const std::string& text) {
    std::vector<float> values;
    std::stringstream stream(text);
    std::string item;
    while (std::getline(stream, item, ','))
        values.push_back(std::stof(item));
    return values;
}

} // namespace

int main(int argc, char** argv) {
    std::map<std::string, std::string> a;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const auto equals = argument.find('=');
        if (equals == std::string::npos) {
            std::cerr << "not key=value: " << argument << "\n";
            return 2;
        }
        a[argument.substr(0, equals)] = argument.substr(equals + 1);
    }
    cMessageSink::Silence();
    try {
        const std::vector<float> size = Numbers(a.at("size"));
        const std::vector<float> spacing = Numbers(a.at("spacing"));
        const std::vector<float> guard = Numbers(a.count("guard") ? a["guard"] : "0,0");

        cCountedPtr<cDeconLog> log(new cDeconLog());
        cDeconParameter& p = log->GetParameters();
        p.SetString(DEC_SPARAMS_ORIGINAL_FILE, a.at("input"));
        p.SetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE, a.at("output"));
        p.SetInt(DEC_IPARAMS_SUBVOLUME_WIDTH, static_cast<int32_t>(size[0]));
        p.SetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT, static_cast<int32_t>(size[1]));
        p.SetInt(DEC_IPARAMS_SUBVOLUME_DEPTH, static_cast<int32_t>(size[2]));
        p.SetReal(DEC_RPARAMS_X_SPACING, spacing[0]);
        p.SetReal(DEC_RPARAMS_Y_SPACING, spacing[1]);
        p.SetReal(DEC_RPARAMS_Z_SPACING, spacing[2]);
        p.SetReal(DEC_RPARAMS_NUMERICAL_APERTURE, std::stof(a.count("na") ? a["na"] : "1.4"));
        p.SetReal(DEC_RPARAMS_REFRACTION_INDEX, std::stof(a.count("n") ? a["n"] : "1.515"));
        p.SetReal(DEC_RPARAMS_EMISSION_WAVELENGTH,
                  std::stof(a.count("lambda") ? a["lambda"] : "520"));
        p.SetReal(DEC_RPARAMS_SPHERICAL_ABERRATION, 0.0f);
        p.SetBool(DEC_BPARAMS_IS_PHASEOBJECT, a.count("phase") && a["phase"] == "1");
        p.SetFlag(DEC_FPARAMS_MODALITY, DEC_FLAG_MOD_WF_FLUORESCENCE);
        p.SetBool(DEC_BPARAMS_IS_TLB, false);
        p.SetFlag(DEC_FPARAMS_NOISE_LEVEL, std::stoi(a.at("noise")));
        p.SetReal(DEC_RPARAMS_GOODS_FACTOR, std::stof(a.count("factor") ? a["factor"] : "0"));
        p.SetFlag(DEC_FPARAMS_DATATYPE, DEC_FLAG_DTF_FLOAT_32BIT);
        p.SetFlag(DEC_FPARAMS_STOPPING_CRITERION, DEC_FLAG_SC_ALWAYS);
        p.SetFlag(DEC_FPARAMS_DARK_CURRENT_METHOD, DEC_FLAG_DCM_AUTO_CALCULATION);
        p.SetFlag(DEC_FPARAMS_PREVIEW_METHOD, DEC_FLAG_PM_3D_PREVIEW);
        p.SetReal(DEC_RPARAMS_MINIMUM_RADIUS, 1.0f);
        p.SetBool(DEC_BPARAMS_DELETE_ORIGINAL_FILE, false);
        // One subvolume that is the whole stack, with z guard bands only.
        p.SetInt(DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES, 1);
        p.SetInt(DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES, 1);
        p.SetInt(DEC_IPARAMS_SUBVOLUME_ZNUMBEROFVOLUMES, 1);
        p.SetInt(DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND, static_cast<int32_t>(guard[0]));
        p.SetInt(DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND, static_cast<int32_t>(guard[1]));
        p.SetFlag(DEC_FPARAMS_PSF_GENERATION_SOURCE, DEC_FLAG_PSFSRC_CALCULATED);
        if (a.count("psf")) {
            p.SetFlag(DEC_FPARAMS_PSF_GUESS_METHOD, DEC_FLAG_PGM_PSF_INPUT);
            p.SetString(DEC_SPARAMS_INPUT_PSF_FILE, a["psf"]);
            p.SetInt(DEC_IPARAMS_PSF_WIDTH, static_cast<int32_t>(size[0]));
            p.SetInt(DEC_IPARAMS_PSF_HEIGHT, static_cast<int32_t>(size[1]));
            p.SetInt(DEC_IPARAMS_PSF_DEPTH, static_cast<int32_t>(size[2]));
            p.SetReal(DEC_RPARAMS_PSF_X_SPACING, spacing[0]);
            p.SetReal(DEC_RPARAMS_PSF_Y_SPACING, spacing[1]);
            p.SetReal(DEC_RPARAMS_PSF_Z_SPACING, spacing[2]);
        } else {
            p.SetFlag(DEC_FPARAMS_PSF_GUESS_METHOD, DEC_FLAG_PGM_THEORETICAL_EST);
        }

        cInverseFilterDeconAlgorithm algorithm(log);
        algorithm.SetStatusCallback(CountStatus, nullptr);
        algorithm.SetSubvolumeProgress(1, 1);
        algorithm.Initialize();
        algorithm.SetUp();
        algorithm.Prepare();
        algorithm.Run();
        std::cout << "status calls " << gStatusCalls << "\n";
        return 0;
    } catch (const cException& failure) {
        std::cerr << failure.GetWhere() << ": " << failure.GetMessage() << " (code "
                  << failure.GetCode() << ")\n";
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << "\n";
    }
    return 1;
}

// Restores one stack as the run stages restore one subvolume (a hand-made subvolume log, then
// the constructor, SetSubvolumeProgress, Initialize, SetUp, Prepare and Run), for the check
// scripts to recompute with numpy. Arguments, each key=value:
//   method=inverse|mlem|gold|mlem2d|blind  the inverse filter, ML-EM, Gold's ratio method,
//                      or ML-EM of a plane with a known or an estimated PSF
//   input, output      raw float stacks (x fastest, native byte order)
//   size=X,Y,Z         the stack's size; spacing=dx,dy,dz in micrometres
//   psf=FILE           a measured PSF of the stack's size and spacing, centred in its file;
//                      without it the theoretical PSF of na=, n=, lambda= (widefield)
//   guard=x1,x2,y1,y2,z1,z2   guard bands of the subvolume (default none)
//   factor=F           the regularisation factor
//   noise=50..54, phase=0|1   the inverse filter's noise level; the stack shows a phase object
//   passes=N           the iterative methods' passes, each saved as output_I1 ... and the last
//                      as output (Good's β = F·1e-4, and a Gaussian blur of the start of
//                      width sqrt(F/10) when that exceeds 1)
//   extrapolation=0|1  ML-EM: vector extrapolation instead of the line search
//   smooth=width,interval     Gold's blur between the passes
//   updates=object,psf        the plane methods' updates a pass (default 1,1); the blind
//                             method also saves its PSF estimate as output_psf
// Prints "status calls N" on success; exit code 1 with the failure otherwise.
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "core/cDeconLog.h"
#include "core/cException.h"
#include "core/cMessageSink.h"
#include "decon/DeconAlgorithmChoice.h"
#include "decon/cInverseFilterDeconAlgorithm.h"
#include "interface/ovdinf01.h"

using namespace Ovidane;

namespace {

int gStatusCalls = 0;

uint16_t CountStatus(ovdStructInvFilterStatus*, void*) {
    ++gStatusCalls;
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
    const auto option = [&](const std::string& key, const std::string& otherwise) {
        return a.count(key) ? a[key] : otherwise;
    };
    cMessageSink::Silence();
    try {
        const std::string method = a.at("method");
        const std::vector<float> size = Numbers(a.at("size"));
        const std::vector<float> spacing = Numbers(a.at("spacing"));
        const std::vector<float> guard = Numbers(option("guard", "0,0,0,0,0,0"));

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
        p.SetReal(DEC_RPARAMS_NUMERICAL_APERTURE, std::stof(option("na", "1.4")));
        p.SetReal(DEC_RPARAMS_REFRACTION_INDEX, std::stof(option("n", "1.515")));
        p.SetReal(DEC_RPARAMS_EMISSION_WAVELENGTH, std::stof(option("lambda", "520")));
        p.SetFlag(DEC_FPARAMS_MODALITY, DEC_FLAG_MOD_WF_FLUORESCENCE);
        p.SetFlag(DEC_FPARAMS_DATATYPE, DEC_FLAG_DTF_FLOAT_32BIT);
        p.SetFlag(DEC_FPARAMS_STOPPING_CRITERION, DEC_FLAG_SC_ALWAYS);
        p.SetReal(DEC_RPARAMS_GOODS_FACTOR, std::stof(option("factor", "0")));
        const DecIntKey bands[] = {
            DEC_IPARAMS_SUBVOLUME_X1GUARDBAND, DEC_IPARAMS_SUBVOLUME_X2GUARDBAND,
            DEC_IPARAMS_SUBVOLUME_Y1GUARDBAND, DEC_IPARAMS_SUBVOLUME_Y2GUARDBAND,
            DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND, DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND};
        for (int i = 0; i < 6; ++i)
            p.SetInt(bands[i], static_cast<int32_t>(guard[i]));
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

        cCountedPtr<cDeconAlgorithm> algorithm;
        if (method == "inverse") {
            p.SetBool(DEC_BPARAMS_IS_PHASEOBJECT, option("phase", "0") == "1");
            p.SetFlag(DEC_FPARAMS_NOISE_LEVEL, std::stoi(a.at("noise")));
            p.SetFlag(DEC_FPARAMS_DARK_CURRENT_METHOD, DEC_FLAG_DCM_AUTO_CALCULATION);
            p.SetFlag(DEC_FPARAMS_PREVIEW_METHOD, DEC_FLAG_PM_3D_PREVIEW);
            p.SetReal(DEC_RPARAMS_MINIMUM_RADIUS, 1.0f);
            p.SetInt(DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES, 1);
            p.SetInt(DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES, 1);
            p.SetInt(DEC_IPARAMS_SUBVOLUME_ZNUMBEROFVOLUMES, 1);
            algorithm = new cInverseFilterDeconAlgorithm(log);
        } else {
            const std::vector<float> smooth = Numbers(option("smooth", "0,0"));
            p.SetFlag(DEC_FPARAMS_PREVIEW_METHOD, DEC_FLAG_PM_NONE);
            p.SetFlag(DEC_FPARAMS_INITIAL_GUESS_METHOD, DEC_FLAG_IGM_ORIGINAL_DATA);
            p.SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, std::stoi(a.at("passes")));
            p.SetInt(DEC_IPARAMS_SAVE_INTERVAL, 1);
            p.SetBool(DEC_BPARAMS_VECTOR_EXTRAPOLATION, option("extrapolation", "0") == "1");
            p.SetReal(DEC_RPARAMS_GOLDS_SMOOTH_GAUSS, smooth[0]);
            p.SetInt(DEC_IPARAMS_GOLDS_SMOOTH_ITER, static_cast<int32_t>(smooth[1]));
            p.SetInt(DEC_IPARAMS_SUBPIXEL_XY_FACTOR, 1);
            p.SetInt(DEC_IPARAMS_SUBPIXEL_Z_FACTOR, 1);
            const std::vector<float> updates = Numbers(option("updates", "1,1"));
            p.SetInt(DEC_IPARAMS_MLEM2D_NONBLIND_39, static_cast<int32_t>(updates[0]));
            p.SetInt(DEC_IPARAMS_MLEM2D_BLIND_38, static_cast<int32_t>(updates[1]));
            p.SetBool(DEC_BPARAMS_SAVE_PSF, method == "blind");
            p.SetFlag(DEC_FPARAMS_DECON_METHOD,
                      method == "gold" ? DEC_FLAG_DM_GOLDS : DEC_FLAG_DM_EXPECTATION_MAX);
            algorithm =
                MakeDeconAlgorithm(log, method == "mlem2d"  ? cRestorationKind::Plane
                                        : method == "blind" ? cRestorationKind::BlindPlane
                                                            : cRestorationKind::ByLogMethod);
        }
        algorithm->SetStatusCallback(CountStatus, nullptr);
        algorithm->SetSubvolumeProgress(1, 1);
        algorithm->Initialize();
        algorithm->SetUp();
        algorithm->Prepare();
        algorithm->Run();
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

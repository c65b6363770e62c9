// Restores one stack with an iterative method, as the run stages restore one subvolume: a
// hand-made subvolume log, then the constructor, SetSubvolumeProgress, Initialize, SetUp,
// Prepare and Run. Every pass is saved (save interval 1): the files output_I1 ... and the
// result itself after the last pass. iterative_check.py writes the stack and the PSF, runs
// this program and recomputes the passes.
//
// Arguments, each key=value:
//   method=mlem|gold|mlem2d|blind   ML-EM, Gold's ratio method, or ML-EM of a plane with
//                      a known or an estimated PSF
//   input, output      raw float stacks (x fastest, native byte order)
//   psf=FILE           a PSF of the stack's size and spacing, centred in its file
//   size=X,Y,Z         the stack's size; spacing=dx,dy,dz in micrometres
//   passes=N           the number of passes
//   factor=F           the regularisation factor (Good's β = F·1e-4, and a Gaussian blur of
//                      the start of width sqrt(F/10) when that exceeds 1)
//   extrapolation=0|1  ML-EM: vector extrapolation instead of the line search
//   guard=x1,x2,y1,y2,z1,z2   guard bands of the subvolume (default none)
//   smooth=width,interval     Gold's blur between the passes
//   updates=object,psf        the plane methods' updates a pass (default 1,1); the blind
//                             method also writes its PSF estimate, output_psf
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
#include "decon/DeconAlgorithmChoice.h"
#include "interface/ovdinf01.h"

using namespace Ovidane;

namespace {

int gStatusCalls = 0;

uint16_t CountStatus(ovdStructInvFilterStatus* /*status*/, void* /*userData*/) {
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
    cMessageSink::Silence();
    try {
        const std::vector<float> size = Numbers(a.at("size"));
        const std::vector<float> spacing = Numbers(a.at("spacing"));
        const std::vector<float> guard = Numbers(a.count("guard") ? a["guard"] : "0,0,0,0,0,0");
        const std::vector<float> smooth = Numbers(a.count("smooth") ? a["smooth"] : "0,0");
        const std::vector<float> updates = Numbers(a.count("updates") ? a["updates"] : "1,1");

        cCountedPtr<cDeconLog> log(new cDeconLog());
        cDeconParameter& p = log->GetParameters();
        p.SetString(DEC_SPARAMS_ORIGINAL_FILE, a.at("input"));
        p.SetString(DEC_SPARAMS_OUTPUT_IMAGE_FILE, a.at("output"));
        p.SetString(DEC_SPARAMS_INPUT_PSF_FILE, a.at("psf"));
        for (DecIntKey key : {DEC_IPARAMS_SUBVOLUME_WIDTH, DEC_IPARAMS_PSF_WIDTH})
            p.SetInt(key, static_cast<int32_t>(size[0]));
        for (DecIntKey key : {DEC_IPARAMS_SUBVOLUME_HEIGHT, DEC_IPARAMS_PSF_HEIGHT})
            p.SetInt(key, static_cast<int32_t>(size[1]));
        for (DecIntKey key : {DEC_IPARAMS_SUBVOLUME_DEPTH, DEC_IPARAMS_PSF_DEPTH})
            p.SetInt(key, static_cast<int32_t>(size[2]));
        for (DecRealKey key : {DEC_RPARAMS_X_SPACING, DEC_RPARAMS_PSF_X_SPACING})
            p.SetReal(key, spacing[0]);
        for (DecRealKey key : {DEC_RPARAMS_Y_SPACING, DEC_RPARAMS_PSF_Y_SPACING})
            p.SetReal(key, spacing[1]);
        for (DecRealKey key : {DEC_RPARAMS_Z_SPACING, DEC_RPARAMS_PSF_Z_SPACING})
            p.SetReal(key, spacing[2]);
        p.SetReal(DEC_RPARAMS_NUMERICAL_APERTURE, 1.4f);
        p.SetReal(DEC_RPARAMS_REFRACTION_INDEX, 1.515f);
        p.SetReal(DEC_RPARAMS_EMISSION_WAVELENGTH, 520.0f);
        p.SetFlag(DEC_FPARAMS_MODALITY, DEC_FLAG_MOD_WF_FLUORESCENCE);
        p.SetFlag(DEC_FPARAMS_DATATYPE, DEC_FLAG_DTF_FLOAT_32BIT);
        p.SetFlag(DEC_FPARAMS_STOPPING_CRITERION, DEC_FLAG_SC_ALWAYS);
        p.SetFlag(DEC_FPARAMS_PREVIEW_METHOD, DEC_FLAG_PM_NONE);
        p.SetFlag(DEC_FPARAMS_PSF_GUESS_METHOD, DEC_FLAG_PGM_PSF_INPUT);
        p.SetFlag(DEC_FPARAMS_PSF_GENERATION_SOURCE, DEC_FLAG_PSFSRC_CALCULATED);
        p.SetFlag(DEC_FPARAMS_INITIAL_GUESS_METHOD, DEC_FLAG_IGM_ORIGINAL_DATA);
        p.SetInt(DEC_IPARAMS_TOTAL_ITERATIONS, std::stoi(a.at("passes")));
        p.SetInt(DEC_IPARAMS_SAVE_INTERVAL, 1);
        p.SetReal(DEC_RPARAMS_GOODS_FACTOR, std::stof(a.count("factor") ? a["factor"] : "0"));
        p.SetBool(DEC_BPARAMS_VECTOR_EXTRAPOLATION,
                  a.count("extrapolation") && a["extrapolation"] == "1");
        p.SetReal(DEC_RPARAMS_GOLDS_SMOOTH_GAUSS, smooth[0]);
        p.SetInt(DEC_IPARAMS_GOLDS_SMOOTH_ITER, static_cast<int32_t>(smooth[1]));
        p.SetInt(DEC_IPARAMS_MLEM2D_NONBLIND_39, static_cast<int32_t>(updates[0]));
        p.SetInt(DEC_IPARAMS_MLEM2D_BLIND_38, static_cast<int32_t>(updates[1]));
        p.SetBool(DEC_BPARAMS_SAVE_PSF, a.at("method") == "blind");
        p.SetInt(DEC_IPARAMS_SUBPIXEL_XY_FACTOR, 1);
        p.SetInt(DEC_IPARAMS_SUBPIXEL_Z_FACTOR, 1);
        const DecIntKey bands[] = {
            DEC_IPARAMS_SUBVOLUME_X1GUARDBAND, DEC_IPARAMS_SUBVOLUME_X2GUARDBAND,
            DEC_IPARAMS_SUBVOLUME_Y1GUARDBAND, DEC_IPARAMS_SUBVOLUME_Y2GUARDBAND,
            DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND, DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND};
        for (int i = 0; i < 6; ++i)
            p.SetInt(bands[i], static_cast<int32_t>(guard[i]));

        const std::string& method = a.at("method");
        const cRestorationKind kind = method == "mlem2d"  ? cRestorationKind::Plane
                                      : method == "blind" ? cRestorationKind::BlindPlane
                                                          : cRestorationKind::ByLogMethod;
        if (method == "gold")
            p.SetFlag(DEC_FPARAMS_DECON_METHOD, DEC_FLAG_DM_GOLDS);
        else if (method == "mlem")
            p.SetFlag(DEC_FPARAMS_DECON_METHOD, DEC_FLAG_DM_EXPECTATION_MAX);
        cDeconAlgorithmPtr algorithm = MakeDeconAlgorithm(log, kind);
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

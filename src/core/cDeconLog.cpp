#include "core/cDeconLog.h"

#include <fstream>
#include <ios>

namespace Ovidane {

namespace {

// The label of a dump line is the key's own spelling followed by " = ".
#define OVD_DUMP_LINE(key)                                                                         \
    { key, #key " = " }

template <class Key> struct cDumpLine {
    Key key;
    const char* label;
};

constexpr cDumpLine<DecStringKey> kStringLines[] = {
    OVD_DUMP_LINE(DEC_SPARAMS_ORIGINAL_FILE),
    OVD_DUMP_LINE(DEC_SPARAMS_INPUT_PSF_FILE),
    OVD_DUMP_LINE(DEC_SPARAMS_OUTPUT_PSF_FILE),
    OVD_DUMP_LINE(DEC_SPARAMS_OUTPUT_IMAGE_FILE),
};

constexpr cDumpLine<DecRealKey> kRealLines[] = {
    OVD_DUMP_LINE(DEC_RPARAMS_NUMERICAL_APERTURE),
    OVD_DUMP_LINE(DEC_RPARAMS_REFRACTION_INDEX),
    OVD_DUMP_LINE(DEC_RPARAMS_EMISSION_WAVELENGTH),
    OVD_DUMP_LINE(DEC_RPARAMS_X_SPACING),
    OVD_DUMP_LINE(DEC_RPARAMS_Y_SPACING),
    OVD_DUMP_LINE(DEC_RPARAMS_Z_SPACING),
    OVD_DUMP_LINE(DEC_RPARAMS_PSF_X_SPACING),
    OVD_DUMP_LINE(DEC_RPARAMS_PSF_Y_SPACING),
    OVD_DUMP_LINE(DEC_RPARAMS_PSF_Z_SPACING),
    OVD_DUMP_LINE(DEC_RPARAMS_MINIMUM_RADIUS),
    OVD_DUMP_LINE(DEC_RPARAMS_GOODS_FACTOR),
    OVD_DUMP_LINE(DEC_RPARAMS_AXIAL_CONSTRAINT),
    OVD_DUMP_LINE(DEC_RPARAMS_SPHERICAL_ABERRATION),
    OVD_DUMP_LINE(DEC_RPARAMS_DARKCURRENT),
    OVD_DUMP_LINE(DEC_RPARAMS_STRCH_FACTOR),
    OVD_DUMP_LINE(DEC_RPARAMS_GOLDS_SMOOTH_GAUSS),
};

// Keys 27, 29 and 37 to 40 are not part of the record.
constexpr cDumpLine<DecIntKey> kIntLines[] = {
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_WIDTH),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_HEIGHT),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_DEPTH),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_XYGUARDBAND),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_ZGUARDBAND),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_OVERLAP),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_XINDEX),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_YINDEX),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_ZINDEX),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_X1GUARDBAND),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_Y1GUARDBAND),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_Z1GUARDBAND),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_X2GUARDBAND),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_Y2GUARDBAND),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_Z2GUARDBAND),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_ZNUMBEROFVOLUMES),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_MEMORYSIZE),
    OVD_DUMP_LINE(DEC_IPARAMS_PSF_WIDTH),
    OVD_DUMP_LINE(DEC_IPARAMS_PSF_HEIGHT),
    OVD_DUMP_LINE(DEC_IPARAMS_PSF_DEPTH),
    OVD_DUMP_LINE(DEC_IPARAMS_TOTAL_ITERATIONS),
    OVD_DUMP_LINE(DEC_IPARAMS_CURRENT_ITERATION),
    OVD_DUMP_LINE(DEC_IPARAMS_GOLDS_SMOOTH_ITER),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBPIXEL_XY_FACTOR),
    OVD_DUMP_LINE(DEC_IPARAMS_SAVE_INTERVAL),
    OVD_DUMP_LINE(DEC_IPARAMS_BINFACTOR),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_EXTENDED_WIDTH),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_EXTENDED_HEIGHT),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_EXTENDED_DEPTH),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_STARTX_IN_EXSUBVOLUME),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_STARTY_IN_EXSUBVOLUME),
    OVD_DUMP_LINE(DEC_IPARAMS_SUBVOLUME_STARTZ_IN_EXSUBVOLUME),
};

// The adaptive-PSF switch leads the booleans; keys 16 to 18 are not part of the record.
constexpr cDumpLine<DecBoolKey> kBoolLines[] = {
    OVD_DUMP_LINE(DEC_BPARAMS_ADAPTIVE_PSF),
    OVD_DUMP_LINE(DEC_BPARAMS_IS_CONFOCAL),
    OVD_DUMP_LINE(DEC_BPARAMS_IS_TLB),
    OVD_DUMP_LINE(DEC_BPARAMS_IS_PHASEOBJECT),
    OVD_DUMP_LINE(DEC_BPARAMS_BANDLIMIT_OBSERVE),
    OVD_DUMP_LINE(DEC_BPARAMS_PREPROCESS_PSF),
    OVD_DUMP_LINE(DEC_BPARAMS_PSF_HIGH_NA),
    OVD_DUMP_LINE(DEC_BPARAMS_PSF_EMPIRICAL),
    OVD_DUMP_LINE(DEC_BPARAMS_VECTOR_EXTRAPOLATION),
    OVD_DUMP_LINE(DEC_BPARAMS_SUBVOLUME_XYMONTAGE),
    OVD_DUMP_LINE(DEC_BPARAMS_SUBVOLUME_ZMONTAGE),
    OVD_DUMP_LINE(DEC_BPARAMS_PSF_CONSTRAINTS),
    OVD_DUMP_LINE(DEC_BPARAMS_INTENSITY_CORRECTION),
    OVD_DUMP_LINE(DEC_BPARAMS_ACCELERATION_SA_DETECTION),
    OVD_DUMP_LINE(DEC_BPARAMS_SAVE_PSF),
};

// The initial image source and the preview methods are not part of the record.
constexpr cDumpLine<DecFlagKey> kFlagLines[] = {
    OVD_DUMP_LINE(DEC_FPARAMS_DATATYPE),
    OVD_DUMP_LINE(DEC_FPARAMS_MODALITY),
    OVD_DUMP_LINE(DEC_FPARAMS_DECON_METHOD),
    OVD_DUMP_LINE(DEC_FPARAMS_INITIAL_GUESS_METHOD),
    OVD_DUMP_LINE(DEC_FPARAMS_PSF_GUESS_METHOD),
    OVD_DUMP_LINE(DEC_FPARAMS_PSF_GENERATION_SOURCE),
    OVD_DUMP_LINE(DEC_FPARAMS_NOISE_SMOOTHING_METHOD),
    OVD_DUMP_LINE(DEC_FPARAMS_FREQUENCY_CON_METHOD),
    OVD_DUMP_LINE(DEC_FPARAMS_STOPPING_CRITERION),
    OVD_DUMP_LINE(DEC_FPARAMS_DARK_CURRENT_METHOD),
    OVD_DUMP_LINE(DEC_FPARAMS_SUBVOLUME_METHOD),
    OVD_DUMP_LINE(DEC_FPARAMS_NOISE_LEVEL),
};

#undef OVD_DUMP_LINE

// The record always reads the same, whatever formatting the caller left on the stream:
// decimal integers and reals with six significant digits. The caller's state comes back
// afterwards.
class cDefaultFormat {
public:
    explicit cDefaultFormat(std::ostream& stream)
        : mStream(stream), mFlags(stream.flags()), mPrecision(stream.precision()),
          mWidth(stream.width()) {
        stream.flags(std::ios_base::dec | std::ios_base::skipws);
        stream.precision(6);
        stream.width(0);
    }
    ~cDefaultFormat() {
        mStream.flags(mFlags);
        mStream.precision(mPrecision);
        mStream.width(mWidth);
    }
    cDefaultFormat(const cDefaultFormat&) = delete;
    cDefaultFormat& operator=(const cDefaultFormat&) = delete;

private:
    std::ostream& mStream;
    std::ios_base::fmtflags mFlags;
    std::streamsize mPrecision;
    std::streamsize mWidth;
};

} // namespace

cDeconLog::cDeconLog() : cOvdObject("cDeconLog"), mParameters(new cDeconParameter()) {}

cDeconLog::cDeconLog(const cDeconLog& source)
    : cOvdObject(source), mParameters(new cDeconParameter(*source.mParameters)) {}

void cDeconLog::WriteLog() const {
    Guard([&] {
        const std::string& base =
            mLogPath.empty() ? mParameters->GetString(DEC_SPARAMS_ORIGINAL_FILE) : mLogPath;
        std::ofstream file(base + "_Log.txt", std::ios::out | std::ios::trunc);
        Dump(file);
    });
}

void cDeconLog::AppendLog() const {
    Guard([&] {
        if (mLogPath.empty())
            return;
        std::ofstream file(mLogPath, std::ios::out | std::ios::app);
        Dump(file);
    });
}

void cDeconLog::Dump(std::ostream& stream) const {
    Guard([&] {
        const cDeconParameter& p = *mParameters;
        const cDefaultFormat format(stream);
        for (const auto& line : kStringLines)
            stream << line.label << p.GetString(line.key) << std::endl;
        for (const auto& line : kRealLines)
            stream << line.label << p.GetReal(line.key) << std::endl;
        stream << "DEC_RPARAMS_SPHERICAL_ABERRATION" << p.GetReal(DEC_RPARAMS_SPHERICAL_ABERRATION)
               << std::endl;
        for (const auto& line : kIntLines)
            stream << line.label << p.GetInt(line.key) << std::endl;
        stream << "DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE = "
               << p.GetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE) << std::endl;
        for (const auto& line : kBoolLines)
            stream << line.label << (p.GetBool(line.key) ? 1 : 0) << std::endl;
        for (const auto& line : kFlagLines)
            stream << line.label << DecFlagValueName(p.GetFlag(line.key)) << std::endl;
        // The count is a 32-bit product; it wraps as such rather than overflowing.
        const uint32_t subvolumes =
            static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES)) *
            static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES)) *
            static_cast<uint32_t>(p.GetInt(DEC_IPARAMS_SUBVOLUME_ZNUMBEROFVOLUMES));
        stream << "SUBVOLUMES: " << static_cast<int32_t>(subvolumes) << std::endl;
        stream << "DIMENSIONS: " << p.GetInt(DEC_IPARAMS_SUBVOLUME_WIDTH) << "X"
               << p.GetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT) << "X"
               << p.GetInt(DEC_IPARAMS_SUBVOLUME_DEPTH) << std::endl;
    });
}

} // namespace Ovidane

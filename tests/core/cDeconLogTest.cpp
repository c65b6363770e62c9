#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "core/cDeconLog.h"

using namespace Ovidane;

// The dump is what a user reads to know how a run was set up: values of every kind, a flag
// value that belongs to no name, 64-bit sizes whole, and the cut as a product of its counts.
TEST(cDeconLog, DumpShowsEveryKindOfValueAndTheCut) {
    cDeconLog log;
    cDeconParameter& p = log.GetParameters();
    p.SetString(DEC_SPARAMS_ORIGINAL_FILE, "/data/stack.raw");
    p.SetReal(DEC_RPARAMS_SPHERICAL_ABERRATION, -1.25f);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_WIDTH, 512);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_HEIGHT, 256);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_DEPTH, 64);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_XNUMBEROFVOLUMES, 2);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_YNUMBEROFVOLUMES, 3);
    p.SetInt(DEC_IPARAMS_SUBVOLUME_ZNUMBEROFVOLUMES, 1);
    p.SetInt64(DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE, 5000000000LL);
    p.SetBool(DEC_BPARAMS_IS_TLB, true);
    p.SetFlag(DEC_FPARAMS_DATATYPE, DEC_FLAG_DTF_FLOAT_32BIT);
    p.SetFlag(DEC_FPARAMS_MODALITY, 2);
    std::ostringstream out;
    log.Dump(out);
    const std::string dump = out.str();
    for (const char* line :
         {"DEC_SPARAMS_ORIGINAL_FILE = /data/stack.raw\n", "DEC_BPARAMS_IS_TLB = 1\n",
          "DEC_BPARAMS_IS_CONFOCAL = 0\n", "DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE = 5000000000\n",
          "DEC_FPARAMS_DATATYPE = DEC_FLAG_DTF_FLOAT_32BIT\n", "DEC_FPARAMS_MODALITY = <invalid>\n",
          "DEC_RPARAMS_SPHERICAL_ABERRATION = -1.25\n"})
        EXPECT_NE(dump.find(line), std::string::npos) << line;
    EXPECT_TRUE(dump.ends_with("SUBVOLUMES: 6\nDIMENSIONS: 512X256X64\n"));
}

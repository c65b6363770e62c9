#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "core/cDeconLog.h"

using namespace Ovidane;
namespace fs = std::filesystem;

namespace {

void Fill(cDeconParameter& p) {
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
}

std::string DumpOf(const cDeconLog& log) {
    std::ostringstream out;
    log.Dump(out);
    return out.str();
}

std::string ReadFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A fresh, empty directory that is also the current directory while it lives.
class ScratchDirectory {
public:
    ScratchDirectory()
        : mPrevious(fs::current_path()),
          mPath(fs::temp_directory_path() /
                ("ovd-log-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                 "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name())) {
        fs::remove_all(mPath);
        fs::create_directories(mPath);
        fs::current_path(mPath);
    }
    ~ScratchDirectory() {
        fs::current_path(mPrevious);
        fs::remove_all(mPath);
    }
    const fs::path& Path() const { return mPath; }

private:
    fs::path mPrevious;
    fs::path mPath;
};

} // namespace

// The dump is what a user reads to know how a run was set up: values of every kind, a flag
// value that belongs to no name, 64-bit sizes whole, and the cut as a product of its counts.
TEST(cDeconLog, DumpShowsEveryKindOfValueAndTheCut) {
    cDeconLog log;
    Fill(log.GetParameters());
    const std::string dump = DumpOf(log);
    for (const char* line :
         {"DEC_SPARAMS_ORIGINAL_FILE = /data/stack.raw\n", "DEC_BPARAMS_IS_TLB = 1\n",
          "DEC_BPARAMS_IS_CONFOCAL = 0\n", "DEC_I64PARAMS_SUBVOLUME_MEMORYSIZE = 5000000000\n",
          "DEC_FPARAMS_DATATYPE = DEC_FLAG_DTF_FLOAT_32BIT\n", "DEC_FPARAMS_MODALITY = <invalid>\n",
          "DEC_RPARAMS_SPHERICAL_ABERRATION = -1.25\n"})
        EXPECT_NE(dump.find(line), std::string::npos) << line;
    EXPECT_TRUE(dump.ends_with("SUBVOLUMES: 6\nDIMENSIONS: 512X256X64\n"));
}

// WriteLog replaces the file named after the log path (or the original file); AppendLog adds
// to the log path itself and does nothing without one; an unopenable file is skipped.
TEST(cDeconLog, WriteAndAppendChooseTheirFileAndSkipWhatCannotBeOpened) {
    ScratchDirectory dir;
    cDeconLog log;
    Fill(log.GetParameters());
    const fs::path original = dir.Path() / "stack.raw";
    log.GetParameters().SetString(DEC_SPARAMS_ORIGINAL_FILE, original.string());
    const std::string expected = DumpOf(log);

    log.AppendLog();
    EXPECT_TRUE(fs::is_empty(dir.Path()));
    std::ofstream(original.string() + "_Log.txt") << std::string(10000, 'x');
    log.WriteLog();
    EXPECT_EQ(ReadFile(original.string() + "_Log.txt"), expected);

    log.SetLogPath((dir.Path() / "run").string());
    log.WriteLog();
    EXPECT_EQ(ReadFile(dir.Path() / "run_Log.txt"), expected);

    const fs::path path = dir.Path() / "record.txt";
    std::ofstream(path) << "header\n";
    log.SetLogPath(path.string());
    log.AppendLog();
    log.AppendLog();
    EXPECT_EQ(ReadFile(path), "header\n" + expected + expected);

    log.SetLogPath((dir.Path() / "missing" / "run").string());
    EXPECT_NO_THROW(log.WriteLog());
    EXPECT_NO_THROW(log.AppendLog());
    EXPECT_FALSE(fs::exists(dir.Path() / "missing"));
}

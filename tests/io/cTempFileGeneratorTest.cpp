#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "io/cTempFileGenerator.h"
#include "platform/MemoryFiles.h"
#include "platform/cRawFileHandle.h"
#include "support/TempDir.h"

using namespace Ovidane;
namespace fs = std::filesystem;

using OvidaneTest::TempDir;

namespace {

std::string Number(const std::string& name) {
    return name.substr(name.rfind('_') + 1);
}

} // namespace

TEST(cTempFileGenerator, NamesCountOnSkipExistingFilesAndAreDeletedAtTheEnd) {
    const TempDir temp("ovd-tempgen");
    const fs::path& dir = temp.Path();
    std::string first, second, third;
    {
        cTempFileGenerator generator;
        EXPECT_EQ(generator.SetDirectory(dir.string()), 1);
        first = generator.Generate();
        EXPECT_EQ(fs::path(first).parent_path(), dir);
        EXPECT_EQ(fs::path(first).filename().string().rfind("~ovdTempD_", 0), 0u);
        EXPECT_TRUE(fs::exists(first));
        EXPECT_EQ(fs::file_size(first), 0u);

        // Plant the next name: the generator must step over it and leave it alone.
        const std::string planted =
            first.substr(0, first.rfind('_') + 1) + std::to_string(std::stoull(Number(first)) + 1);
        std::ofstream(planted) << "host data";
        second = generator.Generate();
        EXPECT_NE(second, planted);
        EXPECT_EQ(std::stoull(Number(second)), std::stoull(Number(first)) + 2);

        generator.SetDirectory(dir.string() + "/"); // a closing separator is not doubled
        third = generator.Generate();
        EXPECT_EQ(fs::path(third).parent_path(), dir);
        EXPECT_EQ(third.find("//"), std::string::npos);
        EXPECT_TRUE(fs::exists(planted));
    }
    // The counter is process-wide, the files go with the generator, foreign files stay.
    for (const std::string& name : {first, second, third})
        EXPECT_FALSE(fs::exists(name)) << name;
    EXPECT_EQ(temp.Count(), 1u);
    {
        cTempFileGenerator later;
        later.SetDirectory(dir.string());
        EXPECT_GT(std::stoull(Number(later.Generate())), std::stoull(Number(third)));
        // A directory that doesn't exist gives no name.
        later.SetDirectory("/nonexistent-ovidane-dir/sub");
        EXPECT_EQ(later.Generate(), nullptr);
    }
}

// Two processes share a directory. The other one made a name, finished with its file and
// deleted it; this one then makes a file there. When the other process ends, its generator
// deletes what it made, which must not include this process's file. Also: the names of a
// run go at its end, those made before it stay.
TEST(cTempFileGenerator, ARunOrAnotherProcessDeletesOnlyItsOwnFiles) {
    const TempDir temp("ovd-tempgen-procs");
    cTempFileGenerator& generator = cTempFileGenerator::Instance();
    generator.SetDirectory(temp.Path().string());
    int toChild[2], toParent[2];
    ASSERT_EQ(::pipe(toChild), 0);
    ASSERT_EQ(::pipe(toParent), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    char token = 0;
    if (child == 0) {
        const std::string name = cTempFileGenerator::Instance().Generate();
        std::remove(name.c_str());
        (void)!::write(toParent[1], "x", 1);
        (void)!::read(toChild[0], &token, 1);
        std::exit(0); // the generator goes as at unloading
    }
    ASSERT_EQ(::read(toParent[0], &token, 1), 1);
    const std::string kept = generator.Generate();
    const std::size_t mark = generator.GetNameCount();
    const std::string runFile = generator.Generate();
    ASSERT_EQ(::write(toChild[1], "x", 1), 1);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(fs::exists(kept));

    generator.DeleteSince(mark);
    EXPECT_FALSE(fs::exists(runFile));
    EXPECT_TRUE(fs::exists(kept));
    generator.DeleteSince(mark - 1);
}

// In memory mode a name is a memory file: nothing appears in the directory, the raw handle
// reads and writes it as a file (across chunks, with a gap that reads as zeros, emptied by
// a truncating open, shortened and lengthened), and deleting it gives its chunks to the
// pool that the next files take from.
TEST(cTempFileGenerator, MemoryNamesAreFilesThatTheDirectoryNeverSees) {
    const TempDir temp("ovd-tempgen-memory");
    const fs::path& dir = temp.Path();
    constexpr std::size_t kChunk = Platform::cMemoryFile::kChunkBytes;
    Platform::cMemoryFile::KeepPooledAtMost(0);
    {
        cTempFileGenerator generator;
        generator.SetDirectory(dir.string());
        EXPECT_FALSE(generator.SetInMemory(true));
        const std::string name = generator.Generate();
        EXPECT_EQ(fs::path(name).parent_path(), dir);
        EXPECT_FALSE(fs::exists(name));
        EXPECT_EQ(Platform::FileBytes(name), 0);

        // Large enough to be copied by several threads.
        std::vector<char> bytes(2 * kChunk + 1000);
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = char(i % 251 + 1);
        Platform::cRawFileHandle file;
        ASSERT_TRUE(file.Open(name, Platform::cRawFileHandle::Access::Write));
        file.Seek(kChunk - 500); // past the end: the gap reads as zeros
        ASSERT_EQ(file.Write(bytes.data(), bytes.size()), bytes.size());
        EXPECT_EQ(file.Size(), int64_t(3 * kChunk + 500));
        file.Close();

        ASSERT_TRUE(file.Open(name, Platform::cRawFileHandle::Access::Read));
        std::vector<char> back(3 * kChunk + 600, 'x');
        EXPECT_EQ(file.Read(back.data(), back.size()), 3 * kChunk + 500); // short at the end
        EXPECT_EQ(std::count(back.begin(), back.begin() + (kChunk - 500), 0), long(kChunk - 500));
        EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), back.begin() + (kChunk - 500)));
        EXPECT_TRUE(file.SetSize(10));
        EXPECT_TRUE(file.SetSize(20));
        file.Seek(0);
        EXPECT_EQ(file.Read(back.data(), 20), 20u);
        EXPECT_EQ(std::count(back.begin() + 10, back.begin() + 20, 0), 10);
        EXPECT_TRUE(file.Sync());
        ASSERT_TRUE(file.Open(name, Platform::cRawFileHandle::Access::Truncate));
        EXPECT_EQ(file.Size(), 0);
        file.Close();
        EXPECT_GE(Platform::cMemoryFile::PooledBytes(), 2 * kChunk);

        generator.SetInMemory(false);
        const std::string onDisk = generator.Generate();
        EXPECT_TRUE(fs::exists(onDisk));
        generator.DeleteAll();
        EXPECT_EQ(Platform::FileBytes(name), -1);
        EXPECT_FALSE(fs::exists(onDisk));
        EXPECT_FALSE(Platform::RemoveFile(name));
    }
    EXPECT_GE(Platform::cMemoryFile::PooledBytes(), 2 * kChunk);
    Platform::cMemoryFile::KeepPooledAtMost(kChunk);
    EXPECT_EQ(Platform::cMemoryFile::PooledBytes(), kChunk);
    Platform::cMemoryFile::KeepPooledAtMost(0);
    EXPECT_EQ(temp.Count(), 0u);
}

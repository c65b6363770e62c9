#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "io/cTempFileGenerator.h"

using namespace Ovidane;
namespace fs = std::filesystem;

namespace {
fs::path FreshDirectory(const std::string& name) {
    fs::path dir = fs::temp_directory_path() / (name + std::to_string(::testing::UnitTest::GetInstance()->random_seed()));
    fs::remove_all(dir);
    fs::create_directories(dir);
    return dir;
}
std::string Number(const std::string& name) { return name.substr(name.rfind('_') + 1); }
} // namespace

TEST(cTempFileGenerator, NamesCountOnSkipExistingFilesAndAreDeletedAtTheEnd) {
    const fs::path dir = FreshDirectory("ovd-tempgen-");
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
            (dir / ("~ovdTempD_" + std::to_string(std::stoull(Number(first)) + 1))).string();
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
    EXPECT_FALSE(fs::exists(first));
    EXPECT_FALSE(fs::exists(second));
    EXPECT_FALSE(fs::exists(third));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);
    {
        cTempFileGenerator later;
        later.SetDirectory(dir.string());
        EXPECT_GT(std::stoull(Number(later.Generate())), std::stoull(Number(third)));
    }
    fs::remove_all(dir);
}

TEST(cTempFileGenerator, MissingDirectoryGivesNull) {
    cTempFileGenerator generator;
    generator.SetDirectory("/nonexistent-ovidane-dir/sub");
    EXPECT_EQ(generator.Generate(), nullptr);
}

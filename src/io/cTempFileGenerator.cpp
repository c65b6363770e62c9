#include "io/cTempFileGenerator.h"

#include <cerrno>
#include <cstdio>

#include "core/cSingletonHolder.h"
#include "platform/MemoryFiles.h"
#include "platform/Platform.h"

namespace Ovidane {

cTempFileGenerator::cTempFileGenerator() : cOvdObject("cTempFileGenerator") {}

cTempFileGenerator::~cTempFileGenerator() { DeleteAll(); }

cTempFileGenerator& cTempFileGenerator::Instance() {
    return cSingletonHolder<cTempFileGenerator>::Instance();
}

int cTempFileGenerator::SetDirectory(const std::string& path) {
    Lock lock;
    mDirectory = path;
    return 1;
}

const char* cTempFileGenerator::Generate() {
    Lock lock;
    // A directory given with its closing separator gets no second one.
    const std::string prefix =
        mDirectory + ((mDirectory.empty() || mDirectory.back() == '/') ? "" : "/") + "~ovdTempD_" +
        std::to_string(Platform::CurrentProcessId()) + "_";
    for (;;) {
        const std::string name = prefix + std::to_string(++sCounter);
        if (mInMemory) {
            if (!Platform::MemoryFiles::Create(name))
                continue;
            mNames.push_back(name);
            return mNames.back().c_str();
        }
        // Exclusive creation: an existing file is never taken over, even one that appears
        // between a test for it and the creation.
        std::FILE* file = std::fopen(name.c_str(), "wbx");
        if (file) {
            std::fclose(file);
            mNames.push_back(name);
            return mNames.back().c_str();
        }
        if (errno != EEXIST)
            return nullptr;
    }
}

bool cTempFileGenerator::SetInMemory(bool inMemory) {
    Lock lock;
    const bool before = mInMemory;
    mInMemory = inMemory;
    return before;
}

bool cTempFileGenerator::IsInMemory() {
    Lock lock;
    return mInMemory;
}

void cTempFileGenerator::DeleteAll() { DeleteSince(0); }

std::size_t cTempFileGenerator::GetNameCount() {
    Lock lock;
    return mNames.size();
}

void cTempFileGenerator::DeleteSince(std::size_t mark) {
    Lock lock;
    while (mNames.size() > mark) {
        Platform::RemoveFile(mNames.back());
        // Erasing at the end keeps the names handed out before the mark valid.
        mNames.pop_back();
    }
}

} // namespace Ovidane

#pragma once
#include <cstdint>
#include <deque>
#include <string>

#include "core/ClassLevelLockable.h"
#include "core/cOvdObject.h"

namespace Ovidane {

// Names and owns every temporary file of the process. Names are the directory, "/",
// "~ovdTempD_" and a process-wide number that never goes back, so two runs never share a
// name and a file that already exists is skipped, never overwritten. Every name it ever
// made is deleted when the generator goes (at unloading), whatever deleted it earlier.
class cTempFileGenerator : public cOvdObject, private ClassLevelLockable<cTempFileGenerator> {
public:
    cTempFileGenerator();
    ~cTempFileGenerator() override;

    static cTempFileGenerator& Instance();

    int SetDirectory(const std::string& path);
    const std::string& GetDirectory() const { return mDirectory; }

    // Creates a new, empty file and returns its name, or null when it can't be created.
    // The name stays valid as long as the generator.
    const char* Generate();

    // Deletes every file named so far and forgets the names.
    void DeleteAll();

private:
    static inline uint64_t sCounter = 0;
    std::string mDirectory;
    std::deque<std::string> mNames; // a deque keeps handed-out pointers valid
};

} // namespace Ovidane

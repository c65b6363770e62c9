#pragma once
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "core/ClassLevelLockable.h"
#include "core/cOvdObject.h"

namespace Ovidane {

// Names and owns every temporary file of the process. Names are the directory, "/",
// "~ovdTempD_", the process id, "_" and a process-wide number that never goes back: two
// runs never share a name, nor do two processes that use one directory, and a file that
// already exists is skipped, never overwritten. The names a run made are deleted when the
// run ends (DeleteSince), and any still left when the generator goes (at unloading); since
// no other process can make the same name, neither deletes another process's file.
//
// In memory mode the names are those of memory files (platform/MemoryFiles.h): the same
// names, read and written through the same handles, but nothing in the directory.
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

    // Whether the next names are memory files; answers the mode before.
    bool SetInMemory(bool inMemory);
    bool IsInMemory();

    // Deletes every file named so far and forgets the names.
    void DeleteAll();

    // How many names are held: a mark for DeleteSince.
    std::size_t GetNameCount();
    // Deletes the files named since the mark and forgets those names.
    void DeleteSince(std::size_t mark);

private:
    static inline uint64_t sCounter = 0;
    std::string mDirectory;
    bool mInMemory = false;
    std::deque<std::string> mNames; // a deque keeps handed-out pointers valid
};

} // namespace Ovidane

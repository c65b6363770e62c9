#pragma once
// Files the user names for the tool to write. Whatever stands at such a name stays as it was
// until a command has succeeded: a refused, failed or cancelled run leaves it untouched, and
// no output may be a file the same command reads.
#include <string>
#include <vector>

#include "TiffStack.h"

namespace ovdtool {

// A file named on the command line, with the argument or option that named it; an empty
// path means the option wasn't given.
struct NamedFile {
    std::string role; // "IN", "OUT", "--psf", ...
    std::string path;
};

// Throws a StackError naming both when an output is the same file as an input or as another
// output: by the same or another path, a symbolic link or a hard link. Files that don't exist
// yet are compared by their resolved paths.
void RefuseSharedFiles(const std::vector<NamedFile>& inputs, const std::vector<NamedFile>& outputs);

// Thrown when an output's name already holds a file and the user hasn't allowed replacing it;
// the tool answers it with its own exit status, so that scripts can tell it from bad input.
struct OutputExists : StackError {
    using StackError::StackError;
};

// Throws OutputExists for the first output whose name (links followed) holds a regular file.
// Devices and pipes are written to, not replaced, and pass.
void RefuseExistingOutputs(const std::vector<NamedFile>& outputs);

// The name a restored stack gets when the user names none: beside the input, "_ovd" added to
// its name and ".tif" as extension ("cells.ome.tif" and "cells.raw" both give
// "cells_ovd.tif").
std::string DefaultOutputName(const std::string& input);

// One output of a command. The result is written to a fresh file beside the final one (same
// directory, so that putting it in place is one atomic rename) and replaces the final file
// only at Commit; without Commit the fresh file goes and the old one stands.
//
// A symbolic link is followed to the file it names, link by link, also when that file doesn't
// exist yet: the link stays and its target receives the result. A name that holds neither a
// regular file nor nothing (a device, a pipe) keeps nothing to protect and can't be renamed
// over, so the result is written straight to it.
class SafeOutput {
public:
    // Throws a StackError when the name is a directory or nothing can be created beside it
    // (a missing or read-only directory), before any work is done.
    explicit SafeOutput(const std::string& name);
    ~SafeOutput();
    SafeOutput(const SafeOutput&) = delete;
    SafeOutput& operator=(const SafeOutput&) = delete;

    // Where the result goes until Commit.
    const std::string& Path() const { return mWritePath; }
    // The name the user gave, for messages.
    const std::string& Name() const { return mName; }

    // Forces the result to the disk, gives it the permissions of the file it replaces and
    // renames it over that file. Throws a StackError when that fails; the old file stands.
    void Commit();

private:
    std::string mName;
    std::string mTarget;    // the user's name with symbolic links resolved
    std::string mWritePath; // the fresh file beside the target, or the target itself
    bool mDirect = false;
    bool mCommitted = false;
};

} // namespace ovdtool

#pragma once
#include <ostream>
#include <string>

#include "core/cCountedPtr.h"
#include "core/cDeconParameter.h"
#include "core/cOvdObject.h"

namespace Ovidane {

// The handle to a run's settings that every stage holds. It owns its cDeconParameter and
// can write the settings as a text dump. A copy owns an independent copy of the settings,
// which is how a subvolume's algorithm gets its own log.
class cDeconLog : public cOvdObject {
public:
    cDeconLog();
    // New, independent settings equal to the source's; the log path starts empty again,
    // since a written record belongs to the log that asked for it.
    cDeconLog(const cDeconLog& source);
    // Logs travel by counted pointer; replacing one log's settings by another's in place
    // has no use and would blur which record a log path describes.
    cDeconLog& operator=(const cDeconLog&) = delete;

    cDeconParameter& GetParameters() { return *mParameters; }
    const cDeconParameter& GetParameters() const { return *mParameters; }

    // Where WriteLog and AppendLog write; empty at first. Nothing in a run sets it.
    const std::string& GetLogPath() const { return mLogPath; }
    void SetLogPath(const std::string& path) { mLogPath = path; }

    // Replaces the file "<log path>_Log.txt" (or "<DEC_SPARAMS_ORIGINAL_FILE>_Log.txt" with
    // an empty log path) by the text dump. A file that cannot be opened is silently skipped.
    void WriteLog() const;
    // Appends the text dump to the file at the log path itself; does nothing with an
    // empty log path.
    void AppendLog() const;
    // The text dump, one flushed line per setting.
    void Dump(std::ostream& stream) const;

private:
    cCountedPtr<cDeconParameter> mParameters;
    std::string mLogPath;
};

} // namespace Ovidane

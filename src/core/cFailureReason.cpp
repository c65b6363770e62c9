#include "core/cFailureReason.h"

#include <algorithm>

#include "core/cException.h"
#include "core/cMessageSink.h"

namespace Ovidane {
namespace {

std::string& Reason() {
    thread_local std::string reason;
    return reason;
}

} // namespace

void cFailureReason::Clear() {
    Reason().clear();
}

void cFailureReason::Record(const std::string& reason) {
    std::string& kept = Reason();
    if (!kept.empty() || reason.empty())
        return;
    kept = reason;
    // One line, whatever the text of a foreign exception held.
    std::replace(kept.begin(), kept.end(), '\n', ' ');
    while (!kept.empty() && kept.back() == ' ')
        kept.pop_back();
    cMessageSink::Stream() << "Failure: " << kept << '\n' << std::flush;
}

bool cFailureReason::IsRecorded() {
    return !Reason().empty();
}

const char* cFailureReason::Text() {
    return Reason().c_str();
}

std::string cFailureReason::Describe(const std::exception& failure) {
    const auto* own = dynamic_cast<const cException*>(&failure);
    if (!own)
        return failure.what();
    if (own->GetCode() == OVD_ERR_CANCEL)
        return "cancelled by the status callback";
    const std::string& message = own->GetMessage();
    const std::string& where = own->GetWhere();
    if (message.empty())
        return "failure in " + where;
    return where.empty() || where == message ? message : message + " (in " + where + ")";
}

} // namespace Ovidane

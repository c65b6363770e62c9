#pragma once
// A host's status callback for the tests: it keeps every report and answers `answer`, or 0
// (stop) at the report numbered `stopAt`, counted from 1.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "interface/ovdinf01.h"

namespace OvidaneTest {

struct StatusHost {
    std::vector<ovdStructInvFilterStatus> seen;
    uint16_t answer = OVD_STATUS_CONTINUE;
    std::size_t stopAt = 0;

    static uint16_t Record(ovdStructInvFilterStatus* status, void* user) {
        auto* host = static_cast<StatusHost*>(user);
        host->seen.push_back(*status);
        return host->seen.size() == host->stopAt ? 0 : host->answer;
    }
};

} // namespace OvidaneTest

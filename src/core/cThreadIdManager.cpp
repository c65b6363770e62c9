#include "core/cThreadIdManager.h"

#include "core/cSingletonHolder.h"
#include "platform/Platform.h"

namespace Ovidane {

cThreadIdManager::cThreadIdManager() : cOvdObject("cThreadIdManager") {}

cThreadIdManager& cThreadIdManager::Instance() {
    return cSingletonHolder<cThreadIdManager>::Instance();
}

uint32_t cThreadIdManager::GetLogicalThreadId(uint32_t threadId) const {
    return Guard([&] {
        const Lock lock;
        const auto entry = mLogicalIds.find(threadId);
        return entry == mLogicalIds.end() ? threadId : entry->second;
    });
}

uint32_t cThreadIdManager::CurrentLogicalThreadId() const {
    return GetLogicalThreadId(Platform::CurrentThreadId());
}

void cThreadIdManager::SetLogicalThreadId(uint32_t threadId, uint32_t logicalId) {
    Guard([&] {
        const Lock lock;
        mLogicalIds[threadId] = logicalId;
    });
}

void cThreadIdManager::RemoveThreadId(uint32_t threadId) {
    Guard([&] {
        const Lock lock;
        mLogicalIds.erase(threadId);
    });
}

std::size_t cThreadIdManager::EntryCount() const {
    const Lock lock;
    return mLogicalIds.size();
}

} // namespace Ovidane

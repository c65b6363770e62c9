#include "image/cMemoryManagerContainer.h"

#include <algorithm>
#include <atomic>

#include "core/cSingletonHolder.h"
#include "core/cThreadIdManager.h"

namespace Ovidane {

namespace {
std::atomic<uint64_t> gAllocationCount{0};
} // namespace

uint64_t cMemoryManagerContainer::AllocationCount() {
    return gAllocationCount.load(std::memory_order_relaxed);
}

cMemoryManagerContainer::cMemoryManagerContainer() : cOvdObject("cMemoryManagerContainer") {}

cMemoryManagerContainer::~cMemoryManagerContainer() {
    const ManagerLock lock;
    mManagers.clear();
}

cMemoryManagerContainer& cMemoryManagerContainer::Instance() {
    return cSingletonHolder<cMemoryManagerContainer>::Instance();
}

template <class Body> void cMemoryManagerContainer::OnCallingThreadsManager(Body&& body) {
    Guard([&] {
        const ManagerLock lock;
        const uint32_t id = cThreadIdManager::Instance().CurrentLogicalThreadId();
        cCountedPtr<cMemoryManager>& manager = mManagers[id];
        if (!manager)
            manager = new cMemoryManager();
        body(*manager, id);
        RemoveIdleManagers();
    });
}

template <class T>
void cMemoryManagerContainer::AllocateTyped(uint32_t elements, uint32_t count,
                                            cBlockArray<T>& blocks, const std::string& owner) {
    gAllocationCount.fetch_add(1, std::memory_order_relaxed);
    OnCallingThreadsManager([&](cMemoryManager& manager, uint32_t) {
        manager.Allocate(elements, count, blocks, owner);
    });
}

void cMemoryManagerContainer::Allocate(uint32_t e, uint32_t c, cBlockArray<float>& b,
                                       const std::string& o) {
    AllocateTyped(e, c, b, o);
}
void cMemoryManagerContainer::Allocate(uint32_t e, uint32_t c, cBlockArray<uint32_t>& b,
                                       const std::string& o) {
    AllocateTyped(e, c, b, o);
}
void cMemoryManagerContainer::Allocate(uint32_t e, uint32_t c, cBlockArray<uint16_t>& b,
                                       const std::string& o) {
    AllocateTyped(e, c, b, o);
}
void cMemoryManagerContainer::Allocate(uint32_t e, uint32_t c, cBlockArray<uint8_t>& b,
                                       const std::string& o) {
    AllocateTyped(e, c, b, o);
}

void cMemoryManagerContainer::ReportOwners() {
    OnCallingThreadsManager([](cMemoryManager& manager, uint32_t) { manager.ReportOwners(); });
}

void cMemoryManagerContainer::ReportBlockUse() {
    OnCallingThreadsManager([](cMemoryManager& manager, uint32_t) { manager.ReportBlockUse(); });
}

void cMemoryManagerContainer::ReleaseThreadMemory() {
    OnCallingThreadsManager([&](cMemoryManager&, uint32_t id) {
        if (std::find(mReleaseList.begin(), mReleaseList.end(), id) == mReleaseList.end())
            mReleaseList.push_back(id);
    });
}

void cMemoryManagerContainer::RemoveIdleManagers() {
    for (auto id = mReleaseList.begin(); id != mReleaseList.end();) {
        const auto entry = mManagers.find(*id);
        if (entry != mManagers.end() && entry->second->LockedBlockCount() != 0) {
            ++id;
            continue;
        }
        if (entry != mManagers.end())
            mManagers.erase(entry); // the manager reports and gives its regions back
        mReleaseList.erase(id);
        id = mReleaseList.begin();
    }
}

bool cMemoryManagerContainer::HasManager(uint32_t logicalThreadId) const {
    const ManagerLock lock;
    return mManagers.count(logicalThreadId) != 0;
}

std::size_t cMemoryManagerContainer::ManagerCount() const {
    const ManagerLock lock;
    return mManagers.size();
}

} // namespace Ovidane

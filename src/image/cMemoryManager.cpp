#include "image/cMemoryManager.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <map>
#include <ostream>
#include <type_traits>
#include <utility>

#include "core/cException.h"

namespace Ovidane {
namespace {

template <class T> constexpr ovdPixelType PixelTypeOf() {
    if constexpr (std::is_same_v<T, float>)
        return OvdTypeReal;
    else if constexpr (std::is_same_v<T, uint32_t>)
        return ovdTypeUnsignedInt;
    else if constexpr (std::is_same_v<T, uint16_t>)
        return ovdTypeUnsignedShort;
    else
        return OvdTypeUnsignedChar;
}

uint64_t BlockCount(const cRequestList& list) {
    uint64_t blocks = 0;
    for (const cMemoryRequest& request : list)
        blocks += request.count;
    return blocks;
}

constexpr uint64_t kLargestBlock = std::numeric_limits<uint32_t>::max();

} // namespace

cMemoryManager::cMemoryManager() : cMemoryManager(cRegionSource::Current()) {}

cMemoryManager::cMemoryManager(cRegionSource& source)
    : cOvdLoggingObject("cMemoryManager"), mSource(&source) {}

cMemoryManager::~cMemoryManager() {
    const Lock lock;
    ReportOwners();
    if (mVerbosity == 2)
        ReportProfile();
    ReleaseAllRegions<float>();
    ReleaseAllRegions<uint32_t>();
    ReleaseAllRegions<uint16_t>();
    ReleaseAllRegions<uint8_t>();
}

template <class T> void cMemoryManager::ReleaseAllRegions() {
    for (T* region : Pool<T>().regions)
        mSource->Release(region);
    Pool<T>().regions.clear();
}

// ---------------------------------------------------------------------------------------
// Allocation

void cMemoryManager::Allocate(uint32_t e, uint32_t c, cBlockArray<float>& b, const std::string& o) {
    AllocateTyped(e, c, b, o);
}
void cMemoryManager::Allocate(uint32_t e, uint32_t c, cBlockArray<uint32_t>& b,
                              const std::string& o) {
    AllocateTyped(e, c, b, o);
}
void cMemoryManager::Allocate(uint32_t e, uint32_t c, cBlockArray<uint16_t>& b,
                              const std::string& o) {
    AllocateTyped(e, c, b, o);
}
void cMemoryManager::Allocate(uint32_t e, uint32_t c, cBlockArray<uint8_t>& b,
                              const std::string& o) {
    AllocateTyped(e, c, b, o);
}

template <class T>
void cMemoryManager::AllocateTyped(uint32_t elements, uint32_t count, cBlockArray<T>& blocks,
                                   const std::string& owner) {
    const Lock lock;
    // One pass normally serves the request. A pass can leave it unfindable, though: the
    // strategy serves part of it, frees that part again together with the other idle
    // regions, and serves only the rest. A later pass therefore starts from a pool whose
    // idle regions are gone, so that the whole request meets the emptiest heap there is;
    // if that fails as well, so will more passes.
    constexpr int kPasses = 3;
    for (int pass = 0;; ++pass) {
        bool oneBlock = false;
        FindFreeBlocks(elements, count, blocks, oneBlock, owner);
        if (oneBlock || blocks.size() == count)
            break;
        if (pass == kPasses)
            Fail("Unable to allocate 2D Contiguous memory", OVD_ERR_MEMORY);
        if (pass > 0)
            ReleaseAllUnusedRegions();
        // The counter isn't reset when a request fails, so this marks the first request
        // after a failure (and a pass after one that had to split).
        if (mAttempts > 2)
            MessageStream() << "Beginning allocation..." << std::endl;
        cRequestList list{cMemoryRequest{elements, count, false, PixelTypeOf<T>()}};
        AllocateRequests(list, owner);
    }
    if constexpr (std::is_same_v<T, float>) {
        if (mVerbosity == 2)
            ReportBlockUse();
    }
    mAttempts = 0;
}

template <class T>
void cMemoryManager::FindFreeBlocks(uint32_t elements, uint32_t count, cBlockArray<T>& blocks,
                                    bool& oneBlock, const std::string& owner) {
    const Lock lock;
    // Shells (start null) have size 0 and must never answer, not even a request of size 0.
    const auto isFree = [](const cMemoryBlock<T>& block, uint64_t size) {
        return !block.locked && block.start && block.size == size;
    };
    cBlockArray<T>& pool = Pool<T>().blocks;
    for (std::size_t i = 0; i < pool.size() && blocks.size() < count; ++i) {
        if (isFree(*pool[i], elements)) {
            pool[i]->locked = true;
            pool[i]->owner = owner;
            blocks.push_back(pool[i]);
        }
    }
    if (blocks.size() == count)
        return;
    for (auto& block : blocks)
        block->locked = false;
    blocks.clear();
    // A request is only ever answered by blocks of its exact size; blocks are never cut.
    const uint64_t whole = uint64_t{elements} * count;
    for (auto& block : pool) {
        if (isFree(*block, whole)) {
            block->locked = true;
            block->owner = owner;
            blocks.push_back(block);
            oneBlock = true;
            return;
        }
    }
}

void cMemoryManager::AllocateRequests(cRequestList& list, const std::string& owner) {
    const Lock lock;
    cRequestList second;
    TryAllocateRegions(list, owner, true); // one region and one block for everything
    if (!list.empty())
        SplitRequests(list, second, owner);
    if (second.empty())
        return;
    // What is left may fit once the idle regions are gone.
    ReleaseAllUnusedRegions();
    TryAllocateRegions(second, owner, false);
    if (second.empty())
        return;
    std::swap(list, second);
    for (const cMemoryRequest& request : list) {
        if (request.contiguous)
            Fail("Unable to allocate 3D Contiguous memory", OVD_ERR_MEMORY);
        for (uint32_t i = 0; i < request.count; ++i)
            second.push_back(cMemoryRequest{request.elements, 1, false, request.type});
    }
    list.clear();
    SplitRequests(second, list, owner);
    if (!list.empty())
        Fail("Unable to allocate 2D Contiguous memory", OVD_ERR_MEMORY);
}

void cMemoryManager::TryAllocateRegions(cRequestList& list, const std::string& owner,
                                        bool collapse) {
    Guard([&] {
        const Lock lock;
        ++mAttempts;
        // Requests of one type share one region, so they are served or refused together.
        cRequestList pending;
        TryRegionForType<uint8_t>(list, pending, owner, collapse);
        TryRegionForType<uint16_t>(list, pending, owner, collapse);
        TryRegionForType<uint32_t>(list, pending, owner, collapse);
        TryRegionForType<float>(list, pending, owner, collapse);
        CarveBlocks(pending);
    });
}

template <class T>
void cMemoryManager::TryRegionForType(cRequestList& list, cRequestList& pending,
                                      const std::string& owner, bool collapse) {
    const ovdPixelType type = PixelTypeOf<T>();
    uint64_t sum = 0;
    for (const cMemoryRequest& request : list) {
        if (request.type != type)
            continue;
        const uint64_t whole = uint64_t{request.elements} * request.count;
        // A collapsed request is one block, and a block's size must fit its 32-bit count.
        if (collapse && whole > kLargestBlock)
            return;
        sum += whole;
    }
    if (sum == 0)
        return;
    if (!AcquireRegion<T>(sum))
        return;
    cMemoryProfileEntry& entry = ProfileEntry(owner);
    for (auto request = list.begin(); request != list.end();) {
        if (request->type != type) {
            ++request;
            continue;
        }
        if (collapse) {
            request->elements *= request->count;
            request->count = 1;
        }
        entry.Add<T>(request->count, uint64_t{request->elements} * sizeof(T));
        pending.push_back(*request);
        request = list.erase(request);
    }
}

template <class T> T* cMemoryManager::AcquireRegion(uint64_t elements) {
    if (elements > std::numeric_limits<std::size_t>::max() / sizeof(T))
        return nullptr;
    std::vector<T*>& regions = Pool<T>().regions;
    T* region = nullptr;
    // A source that throws refuses like one that answers null; the pass moves on to the
    // next type. Room in the list is made first, so that a region once given is kept.
    try {
        regions.reserve(regions.size() + 1);
        region = static_cast<T*>(mSource->Acquire(static_cast<std::size_t>(elements) * sizeof(T)));
    } catch (const std::exception&) {
        region = nullptr;
    }
    if (region)
        regions.push_back(region);
    return region;
}

void cMemoryManager::CarveBlocks(const cRequestList& pending) {
    const Lock lock;
    std::size_t offsets[4] = {0, 0, 0, 0}; // elements into the newest region, per type
    for (const cMemoryRequest& request : pending) {
        switch (request.type) {
        case OvdTypeReal:
            CarveRequest<float>(request, offsets[0]);
            break;
        case ovdTypeUnsignedInt:
            CarveRequest<uint32_t>(request, offsets[1]);
            break;
        case ovdTypeUnsignedShort:
            CarveRequest<uint16_t>(request, offsets[2]);
            break;
        case OvdTypeUnsignedChar:
            CarveRequest<uint8_t>(request, offsets[3]);
            break;
        }
    }
}

template <class T>
void cMemoryManager::CarveRequest(const cMemoryRequest& request, std::size_t& offset) {
    cPool<T>& pool = Pool<T>();
    T* region = pool.regions.back();
    for (uint32_t i = 0; i < request.count; ++i) {
        pool.blocks.push_back(new cMemoryBlock<T>(region + offset, request.elements, region));
        offset += request.elements;
    }
}

void cMemoryManager::SplitRequests(cRequestList& from, cRequestList& to, const std::string& owner) {
    const Lock lock;
    for (;;) {
        const uint64_t before = BlockCount(from);
        // Shed one block at a time from the back and try the rest as one region after each:
        // the largest region that the source still gives is taken first.
        while (!from.empty()) {
            cMemoryRequest& last = from.back();
            if (last.count == 1) {
                to.push_back(last);
                from.pop_back();
            } else {
                cMemoryRequest one = last;
                one.count = 1;
                to.push_back(one);
                --last.count;
            }
            TryAllocateRegions(from, owner, false);
        }
        if (BlockCount(to) >= before)
            return;
        // Something was served; what was shed is served the same way in a smaller region.
        std::swap(from, to);
        TryAllocateRegions(from, owner, false);
    }
}

template <class T> void cMemoryManager::ReleaseUnusedRegions() {
    const Lock lock;
    cPool<T>& pool = Pool<T>();
    for (std::size_t r = 0; r < pool.regions.size();) {
        T* region = pool.regions[r];
        const bool inUse =
            std::any_of(pool.blocks.begin(), pool.blocks.end(), [&](const auto& block) {
                return block->region == region && block->locked;
            });
        if (inUse) {
            ++r;
            continue;
        }
        for (auto& block : pool.blocks) {
            if (block->region != region)
                continue;
            block->region = nullptr;
            block->start = nullptr;
            block->last = nullptr;
            block->size = 0;
            block->locked = false;
        }
        pool.regions.erase(pool.regions.begin() + static_cast<std::ptrdiff_t>(r));
        mSource->Release(region);
        r = 0;
    }
}

void cMemoryManager::ReleaseAllUnusedRegions() {
    ReleaseUnusedRegions<uint8_t>();
    ReleaseUnusedRegions<uint32_t>();
    ReleaseUnusedRegions<uint16_t>();
    ReleaseUnusedRegions<float>();
}

cMemoryProfileEntry& cMemoryManager::ProfileEntry(const std::string& owner) {
    for (cMemoryProfileEntry& entry : mProfile)
        if (entry.GetOwner() == owner)
            return entry;
    return mProfile.emplace_back(owner);
}

uint64_t cMemoryManager::LockedBlockCount() const {
    const Lock lock;
    uint64_t locked = 0;
    const auto count = [&](const auto& blocks) {
        for (const auto& block : blocks)
            locked += block->locked ? 1 : 0;
    };
    count(mReal.blocks);
    count(mInt.blocks);
    count(mShort.blocks);
    count(mChar.blocks);
    return locked;
}

// ---------------------------------------------------------------------------------------
// Reports

template <class T>
void cMemoryManager::ReportBlockUseLine(const char* name, bool onlyWhenLocked) const {
    const cBlockArray<T>& blocks = Pool<T>().blocks;
    const uint64_t n = blocks.size();
    const uint64_t k = static_cast<uint64_t>(std::count_if(
        blocks.begin(), blocks.end(), [](const auto& block) { return block->locked; }));
    if (onlyWhenLocked ? k == 0 : n == 0)
        return;
    MessageStream() << name << n << " blocks allocated, of which " << k << "(" << k * 100 / n
                    << "%) are locked" << std::endl;
}

void cMemoryManager::ReportBlockUse() const {
    const Lock lock;
    ReportBlockUseLine<float>("OvdTypeReal: ", false);
    ReportBlockUseLine<uint32_t>("ovdTypeUnsignedInt: ", false);
    ReportBlockUseLine<uint16_t>("ovdTypeUnsignedShort: ", false);
    // Char blocks only hold pixels on their way in from a file: only those in use matter.
    ReportBlockUseLine<uint8_t>("OvdTypeUnsignedChar: ", true);
}

void cMemoryManager::ReportOwners() const {
    const Lock lock;
    uint64_t lockedBytes = 0;
    uint64_t allBytes = 0;
    const auto ownersOf = [&](const auto& blocks) {
        std::map<std::string, uint64_t> owners;
        for (const auto& block : blocks) {
            const uint64_t bytes = uint64_t{block->size} * sizeof(*block->start);
            allBytes += bytes;
            if (block->locked) {
                ++owners[block->owner];
                lockedBytes += bytes;
            }
        }
        return owners;
    };
    const auto real = ownersOf(mReal.blocks);
    const auto ints = ownersOf(mInt.blocks);
    const auto shorts = ownersOf(mShort.blocks);
    const auto chars = ownersOf(mChar.blocks);

    std::ostream& out = MessageStream();
    out << "--------------------" << std::endl;
    const auto print = [&](const std::map<std::string, uint64_t>& owners, const char* what) {
        for (const auto& [owner, count] : owners)
            out << owner << " has " << count << what << std::endl;
    };
    print(real, " Real allocations.");
    print(ints, " Int allocations.");
    print(shorts, " Short allocations.");
    print(chars, " Char allocations.");
    out << "Total Locked Memory = " << lockedBytes << std::endl;
    out << "Total All Memory    = " << allBytes << std::endl;
    out << "--------------------" << std::endl;
}

void cMemoryManager::ReportProfile() const {
    const Lock lock;
    static const char* const kTypeNames[4] = {
        "\tOvdTypeReal: ", "\tOvdTypeUnsignedInt: ", "\tOvdTypeUnsignedShort: ",
        "\tOvdTypeUnsignedChar: "};
    std::ostream& out = MessageStream();
    for (const cMemoryProfileEntry& entry : mProfile) {
        out << entry.GetOwner() << " made " << entry.TotalCount() << " allocation(s), totaling "
            << entry.TotalBytes() << " bytes." << std::endl;
        for (int type = 0; type < 4; ++type)
            out << kTypeNames[type] << entry.GetCount(type) << " allocations, totaling "
                << entry.GetBytes(type) << " bytes." << std::endl;
    }
}

template void cMemoryManager::FindFreeBlocks<float>(uint32_t, uint32_t, cBlockArray<float>&, bool&,
                                                    const std::string&);
template void cMemoryManager::FindFreeBlocks<uint32_t>(uint32_t, uint32_t, cBlockArray<uint32_t>&,
                                                       bool&, const std::string&);
template void cMemoryManager::FindFreeBlocks<uint16_t>(uint32_t, uint32_t, cBlockArray<uint16_t>&,
                                                       bool&, const std::string&);
template void cMemoryManager::FindFreeBlocks<uint8_t>(uint32_t, uint32_t, cBlockArray<uint8_t>&,
                                                      bool&, const std::string&);
template void cMemoryManager::ReleaseUnusedRegions<float>();
template void cMemoryManager::ReleaseUnusedRegions<uint32_t>();
template void cMemoryManager::ReleaseUnusedRegions<uint16_t>();
template void cMemoryManager::ReleaseUnusedRegions<uint8_t>();

} // namespace Ovidane

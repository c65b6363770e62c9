#pragma once
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "core/ClassLevelLockable.h"
#include "core/cCountedPtr.h"
#include "core/cOvdLoggingObject.h"
#include "image/cMemoryBlock.h"
#include "image/cMemoryProfileEntry.h"
#include "image/cMemoryRequest.h"
#include "image/cRegionSource.h"

namespace Ovidane {

template <class T> using cBlockArray = std::vector<cCountedPtr<cMemoryBlock<T>>>;
using cRequestList = std::vector<cMemoryRequest>;

// The pixel memory pool of one logical thread. A restoration asks for a handful of image
// sizes again and again, so the manager takes large regions from its region source, cuts
// them into blocks of exactly the sizes asked for, hands blocks out locked and keeps them
// when their image unlocks them, for the next image of the same size. When the source
// refuses, it falls back step by step: one block for the whole request, then regions of
// several blocks, then regions of one block each, and frees idle regions only when it must.
//
// Every member runs under the class-level lock, one lock for all managers of the process.
class cMemoryManager : public cOvdLoggingObject, private ClassLevelLockable<cMemoryManager> {
public:
    using Lock = ClassLevelLockable<cMemoryManager>::Lock;

    // Regions from the source installed now.
    cMemoryManager();
    explicit cMemoryManager(cRegionSource& source);
    // Reports the owners (and at verbosity 2 the profile), then gives every region back.
    ~cMemoryManager() override;

    cMemoryManager(const cMemoryManager&) = delete;
    cMemoryManager& operator=(const cMemoryManager&) = delete;

    // Fills the empty `blocks` with either `count` locked blocks of `elements` elements or
    // one locked block of elements*count; the caller tells the two apart by the array's size.
    void Allocate(uint32_t elements, uint32_t count, cBlockArray<float>& blocks,
                  const std::string& owner);
    void Allocate(uint32_t elements, uint32_t count, cBlockArray<uint32_t>& blocks,
                  const std::string& owner);
    void Allocate(uint32_t elements, uint32_t count, cBlockArray<uint16_t>& blocks,
                  const std::string& owner);
    void Allocate(uint32_t elements, uint32_t count, cBlockArray<uint8_t>& blocks,
                  const std::string& owner);

    // The steps of the strategy, each usable on its own.

    // Takes free blocks from the pool: `count` of exactly `elements`, or else one of exactly
    // elements*count (then `oneBlock` is set). Leaves `blocks` empty when neither is there.
    template <class T>
    void FindFreeBlocks(uint32_t elements, uint32_t count, cBlockArray<T>& blocks, bool& oneBlock,
                        const std::string& owner);
    // Serves `list` or throws; what was served lies in the pool, unlocked.
    void AllocateRequests(cRequestList& list, const std::string& owner);
    // One region per pixel type for all requests of that type; served requests leave the
    // list. With `collapse`, each served request becomes one block of elements*count.
    void TryAllocateRegions(cRequestList& list, const std::string& owner, bool collapse);
    // Cuts the newest region of each type into the blocks of the served requests.
    void CarveBlocks(const cRequestList& pending);
    // Serves `from` block by block, largest fitting region first; leaves in `to` what the
    // source refused.
    void SplitRequests(cRequestList& from, cRequestList& to, const std::string& owner);
    // Gives back every region of the type none of whose blocks is locked; its blocks stay
    // in the list as empty shells.
    template <class T> void ReleaseUnusedRegions();
    // The above for Char, Int, Short and Real, in this order.
    void ReleaseAllUnusedRegions();

    void ReportBlockUse() const;
    void ReportOwners() const;
    void ReportProfile() const;

    int GetVerbosity() const { return mVerbosity; }
    void SetVerbosity(int verbosity) { mVerbosity = verbosity; }

    // Locked blocks of all four types; a released thread's manager goes when this is 0.
    uint64_t LockedBlockCount() const;

    template <class T> const std::vector<T*>& GetRegions() const { return Pool<T>().regions; }
    template <class T> const cBlockArray<T>& GetBlocks() const { return Pool<T>().blocks; }
    const std::vector<cMemoryProfileEntry>& GetProfile() const { return mProfile; }

private:
    template <class T> struct cPool {
        std::vector<T*> regions; // oldest first
        cBlockArray<T> blocks;   // in the order they were cut
    };

    template <class T> cPool<T>& Pool() {
        if constexpr (std::is_same_v<T, float>)
            return mReal;
        else if constexpr (std::is_same_v<T, uint32_t>)
            return mInt;
        else if constexpr (std::is_same_v<T, uint16_t>)
            return mShort;
        else
            return mChar;
    }
    template <class T> const cPool<T>& Pool() const {
        return const_cast<cMemoryManager*>(this)->Pool<T>();
    }

    template <class T>
    void AllocateTyped(uint32_t elements, uint32_t count, cBlockArray<T>& blocks,
                       const std::string& owner);
    template <class T>
    void TryRegionForType(cRequestList& list, cRequestList& pending, const std::string& owner,
                          bool collapse);
    template <class T> T* AcquireRegion(uint64_t elements);
    template <class T> void CarveRequest(const cMemoryRequest& request, std::size_t& offset);
    cMemoryProfileEntry& ProfileEntry(const std::string& owner);
    template <class T> void ReportBlockUseLine(const char* name, bool onlyWhenLocked) const;
    template <class T> void ReleaseAllRegions();

    int mVerbosity = 2;
    uint32_t mAttempts = 0;
    std::vector<cMemoryProfileEntry> mProfile;
    cPool<float> mReal;
    cPool<uint32_t> mInt;
    cPool<uint16_t> mShort;
    cPool<uint8_t> mChar;
    cRegionSource* mSource;
};

} // namespace Ovidane

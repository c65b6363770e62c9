#include <gtest/gtest.h>

#include <thread>

#include "core/cThreadIdManager.h"
#include "math/cImageMathManager.h"
#include "platform/Platform.h"

using namespace Ovidane;

TEST(cImageMathManager, EachLogicalThreadKeepsItsOwnInstance) {
    cImageMathManager& manager = cImageMathManager::Instance();
    EXPECT_EQ(&manager, &cImageMathManager::Instance());
    const cImageMath* mine = manager.GetImageMath().Get();
    ASSERT_NE(mine, nullptr);
    EXPECT_EQ(manager.GetImageMath().Get(), mine);

    // A new thread gets instances of its own, and keeps them.
    const cImageMath* other = nullptr;
    bool stable = false;
    std::thread([&] {
        other = manager.GetImageMath().Get();
        stable = manager.GetImageMath().Get() == other;
    }).join();
    EXPECT_NE(other, nullptr);
    EXPECT_NE(other, mine);
    EXPECT_TRUE(stable);

    // A worker acting for this thread shares this thread's instance.
    const uint32_t caller = Platform::CurrentThreadId();
    const cImageMath* borrowed = nullptr;
    std::thread([&] {
        const uint32_t self = Platform::CurrentThreadId();
        cThreadIdManager::Instance().SetLogicalThreadId(self, caller);
        borrowed = manager.GetImageMath().Get();
        cThreadIdManager::Instance().RemoveThreadId(self);
    }).join();
    EXPECT_EQ(borrowed, mine);
}

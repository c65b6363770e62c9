#include <gtest/gtest.h>

#include "core/cCountedPtr.h"
#include "core/cOvdObject.h"

using namespace Ovidane;

namespace {
struct Tracked : cOvdObject {
    explicit Tracked(int* alive) : mAlive(alive) { ++*mAlive; }
    ~Tracked() override { --*mAlive; }
    int* mAlive;
};
struct Derived : Tracked {
    using Tracked::Tracked;
};
} // namespace

TEST(cCountedPtr, LastOwnerDestroysThroughVirtualDestructor) {
    int alive = 0;
    {
        cCountedPtr<Tracked> a(new Derived(&alive));
        {
            cCountedPtr<Tracked> b = a;
            EXPECT_EQ(a.UseCount(), 2u);
            cCountedPtr<cOvdObject> base(b);
            EXPECT_EQ(a.UseCount(), 3u);
        }
        EXPECT_EQ(alive, 1);
        EXPECT_EQ(a.UseCount(), 1u);
    }
    EXPECT_EQ(alive, 0);
}

TEST(cCountedPtr, AssignmentReleasesOldTargetAndSurvivesSelfAssignment) {
    int alive = 0;
    cCountedPtr<Tracked> a(new Tracked(&alive));
    cCountedPtr<Tracked> b(new Tracked(&alive));
    EXPECT_EQ(alive, 2);
    a = b;
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(a.Get(), b.Get());
    a = a;
    EXPECT_EQ(a.UseCount(), 2u);
    b = cCountedPtr<Tracked>();
    a = b;
    EXPECT_EQ(alive, 0);
}

TEST(cCountedPtr, EmptyPointerTestsNullAndStillCounts) {
    cCountedPtr<Tracked> empty;
    EXPECT_TRUE(empty.IsNull());
    EXPECT_FALSE(empty);
    cCountedPtr<Tracked> copy = empty;
    EXPECT_EQ(empty.UseCount(), 2u);
}

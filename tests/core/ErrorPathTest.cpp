#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "core/HighResTimer.h"
#include "core/cOvdObject.h"
#include "core/cUnmanagedExceptionHandler.h"

using namespace Ovidane;

namespace {

// A chain of named objects, each wrapping its member whole, as library classes do.
class Named : public cOvdObject {
public:
    explicit Named(std::string name) : cOvdObject(std::move(name)) {}
    template <class Body> void Run(Body&& body) const { Guard(std::forward<Body>(body)); }
};

struct ClaimsToBeOurs : std::exception {
    const char* what() const noexcept override { return "Unknown exception"; }
};

} // namespace

TEST(ErrorPath, OwnFailureCollectsOneNamePerObjectOutermostFirst) {
    Named outer("cOuter"), middle("cMiddle"), inner("cInner");
    try {
        outer.Run([&] {
            middle.Run([&] { inner.Run([] { throw cException("cOrigin", "Bad size", 2); }); });
        });
        FAIL() << "nothing thrown";
    } catch (const cException& e) {
        EXPECT_EQ(e.GetWhere(), "cOuter/cMiddle/cInner/cOrigin");
        EXPECT_EQ(e.GetMessage(), "Bad size");
        EXPECT_EQ(e.GetCode(), 2);
        EXPECT_STREQ(e.what(), "Unknown exception");
    }
}

TEST(ErrorPath, ForeignFailureBecomesCodeOneThenTravelsLikeOurs) {
    Named outer("cRun"), blending("cBlending");
    try {
        outer.Run([&] { blending.Run([] { throw std::bad_alloc(); }); });
        FAIL() << "nothing thrown";
    } catch (const cException& e) {
        EXPECT_EQ(e.GetWhere(), "cRun/std::bad_alloc exception in cBlending");
        EXPECT_EQ(e.GetMessage(), "cBlending");
        EXPECT_EQ(e.GetCode(), 1);
    }
    const cException last = cUnmanagedExceptionHandler::Instance().GetLastException();
    EXPECT_EQ(last.GetWhere(), "cRun/std::bad_alloc exception in cBlending");
}

TEST(ErrorPath, ForeignTextThatMatchesOursIsTakenAsOurs) {
    const cException e = cUnmanagedExceptionHandler::Instance().Process(ClaimsToBeOurs(), "cCtx");
    EXPECT_EQ(e.GetWhere(), "cCtx/");
    EXPECT_EQ(e.GetCode(), 1);
}

TEST(ErrorPath, GuardPassesResultsThrough) {
    EXPECT_EQ(GuardedCall("cAny", [] { return 42; }), 42);
}

TEST(ErrorPath, LastExceptionBeforeAnyFailureThrowsEmpty) {
    cUnmanagedExceptionHandler fresh;
    try {
        fresh.GetLastException();
        FAIL() << "nothing thrown";
    } catch (const cException& e) {
        EXPECT_EQ(e.GetMessage(), "Empty");
        EXPECT_EQ(e.GetCode(), 0);
        EXPECT_EQ(e.GetWhere(), "cUnmanagedExceptionHandler");
    }
}

TEST(HighResTimer, NameIsCutAtThirtyAndCountsAdvance) {
    cMonotonicTimer timer("a-name-that-is-clearly-longer-than-thirty-characters");
    EXPECT_EQ(timer.GetName().size(), 30u);
    EXPECT_EQ(timer.GetFrequency(), 3579000u);
    timer.Start();
    volatile double sink = 0;
    for (int i = 0; i < 200000; ++i)
        sink = sink + i;
    EXPECT_GT(timer.GetElapsedCounts(), 0u);
}

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

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

// Counted references: the last release destroys the whole object even through a second base, an
// uncounted object is never destroyed, and ZVTReferenceUser keeps counts right when it changes target.

#include <string>

#include <gtest/gtest.h>

#include "foundation/ZVTReference.h"

namespace {

// ZVTReference is the second base, so its subobject does not start where the object does.
struct FirstBase {
    virtual ~FirstBase() = default;
    long m_lPadding = 0;
};

struct Counted : FirstBase, ZVTReference {
    Counted(std::string& log, const char* name) : m_rLog(log), m_pcName(name) {}
    ~Counted() override { m_rLog += std::string("~") + m_pcName + " "; }

    std::string& m_rLog;
    const char* m_pcName;
};

TEST(ZVTReferenceTest, LastReleaseDestroysThroughASecondBaseAndNeverAnUncountedObject) {
    std::string log;
    ZVTReference* reference = new Counted(log, "a");
    ASSERT_NE(static_cast<void*>(reference), static_cast<void*>(dynamic_cast<Counted*>(reference)));
    reference->AddReference();
    reference->AddReference();
    reference->RemoveReference();
    log += std::to_string(reference->GetReferenceCount()) + " ";
    reference->RemoveReference();
    {
        Counted onStack(log, "stack");
        onStack.RemoveReference();  // never counted: must not delete a stack object
        onStack.AddReference();
        Counted copy(onStack);                       // a copy is a new object, uncounted
        static_cast<ZVTReference&>(copy) = onStack;  // the count is the object's own
        log += std::to_string(copy.GetReferenceCount()) + " ";
    }
    EXPECT_EQ(log, "1 ~a 0 ~stack ~stack ");
}

TEST(ZVTReferenceUserTest, HoldsCountsAndLetsGo) {
    std::string log;
    auto* a = new Counted(log, "a");
    auto* b = new Counted(log, "b");
    {
        ZVTReferenceUser first(a);
        first = first;  // the only holder: releasing before counting again would destroy a
        ZVTReferenceUser second(first);
        first = a;  // holding the same target again changes nothing
        log += std::to_string(a->GetReferenceCount()) + " ";
        second = b;
        first = nullptr;
        log += first() == nullptr ? "let go " : "held ";
        first = second;
        log += std::to_string(b->GetReferenceCount()) + " ";
    }
    EXPECT_EQ(log, "2 ~a let go 2 ~b ");
}

}  // namespace

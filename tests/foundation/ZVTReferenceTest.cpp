// Counted references: the last release destroys the whole object even through a second base, an
// uncounted object is never destroyed, and ZVTReferenceUser keeps counts right when it changes target.

#include <string>

#include <gtest/gtest.h>

#include "foundation/ZVTReference.h"
#include "foundation/ZVTSList.h"

namespace {

// ZVTReference is the second base, so its subobject does not start where the object does.
class FirstBase {
public:
    virtual ~FirstBase() = default;
    long m_lPadding = 0;
};

class Counted : public FirstBase, public ZVTReference {
public:
    Counted(std::string& log, const char* name) : m_rLog(log), m_pcName(name) {}
    ~Counted() override { m_rLog += std::string("~") + m_pcName + " "; }

private:
    std::string& m_rLog;
    const char* m_pcName;
};

TEST(ZVTReferenceTest, LastReleaseDestroysThroughASecondBase) {
    std::string log;
    ZVTReference* reference = new Counted(log, "a");
    ASSERT_NE(static_cast<void*>(reference), static_cast<void*>(dynamic_cast<Counted*>(reference)));
    reference->AddReference();
    reference->AddReference();
    reference->RemoveReference();
    EXPECT_EQ(reference->GetReferenceCount(), 1);
    EXPECT_EQ(log, "");
    reference->RemoveReference();
    EXPECT_EQ(log, "~a ");

    {
        Counted onStack(log, "stack");
        onStack.RemoveReference();  // never counted: must not delete a stack object
        EXPECT_EQ(onStack.GetReferenceCount(), 0);
        Counted copy(onStack);
        onStack.AddReference();
        static_cast<ZVTReference&>(copy) = onStack;  // the count is the object's own
        EXPECT_EQ(copy.GetReferenceCount(), 0);
    }
    EXPECT_EQ(log, "~a ~stack ~stack ");
}

TEST(ZVTReferenceUserTest, HoldsCountsAndLetsGo) {
    std::string log;
    auto* a = new Counted(log, "a");
    auto* b = new Counted(log, "b");
    {
        ZVTReferenceUser first(a);
        first = first;  // the only holder: releasing before counting again would destroy a
        EXPECT_EQ(log, "");
        ZVTReferenceUser second(first);
        first = a;  // holding the same target again changes nothing
        EXPECT_EQ(a->GetReferenceCount(), 2);
        second = b;
        first = nullptr;
        EXPECT_EQ(log, "~a ");
        EXPECT_EQ(first(), nullptr);
        first = second;
        EXPECT_EQ(b->GetReferenceCount(), 2);
    }
    EXPECT_EQ(log, "~a ~b ");

    // A counted list cursor is held like any other target.
    ZVTSList<long> list;
    list.Append(4);
    auto* cursor = new ZVTSListRCIterT<long>(list);
    ZVTReferenceUser user(cursor);
    ZVTReferenceUser copy(user);
    auto* held = dynamic_cast<ZVTSListRCIterT<long>*>(copy());
    ASSERT_EQ(held, cursor);
    ASSERT_TRUE(++*held);
    EXPECT_EQ(held->Key() + 10 * cursor->GetReferenceCount(), 24);
    // Both users let go here; the sanitizer build would report a leak or a bad delete.
}

}  // namespace

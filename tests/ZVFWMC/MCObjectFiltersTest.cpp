// Iterators over properties, ownees and list values, the core's filters and type sorter, object equality
// and its strategies, and the pairing hooks. Each walk is rendered as one string of type codes or ids.

#include <algorithm>
#include <iterator>

#include "support/ModelTestSupport.h"

namespace {

// Integer aliases that take part in default equality (registered with `first`).
constexpr short c_sA = 7431;
constexpr short c_sB = 7432;

std::string Walk(MCPropertyListIter& it) {
    std::string types;
    while (++it)
        types += (types.empty() ? "" : " ") + std::to_string(it.GetValue()->GetType());
    return types;
}

std::string Walk(MCOwneeListIter& it, const std::function<void(MCObject*)>& visit = nullptr) {
    std::string ids;
    while (++it) {
        ids += (ids.empty() ? "" : " ") + std::to_string(it.GetValue()->GetId());
        if (visit)
            visit(it.GetValue());
    }
    return ids;
}

struct RefusingObjectStrategy : MCObjectEqualStrategy {
    ZVTBoolean AreEqual(const MCObject*, const MCObject*) override { return false; }
};

// Compares the values of the properties its filter lets through.
struct FilteredValueStrategy : MCPropertyValueEqualStrategy {
    explicit FilteredValueStrategy(ZVTFilter<MCProperty*>* filter)
        : MCPropertyValueEqualStrategy(false), m_pxFilter(filter) {}
    ZVTFilter<MCProperty*>* GetFilter() const override { return m_pxFilter; }
    ZVTFilter<MCProperty*>* m_pxFilter;
};

template <class T>
struct Descending : ZVTSorter<T> {
    void Sort(T* values, long count) override {
        std::sort(values, values + count, [](const T& a, const T& b) { return b < a; });
    }
};

template <class T>
struct Refuse : ZVTFilter<T> {
    explicit Refuse(T value) : m_xValue(value) {}
    ZVTBoolean Test(T& value) override { return !(value == m_xValue); }
    T m_xValue;
};

// The walk as positions in the list it was made from.
template <class T>
std::string Walk(MCVPropertyIterT<T>& it, const ZVTSList<T>& list) {
    std::string walk;
    while (++it) {
        for (size_t i = 0; i < list.Entries(); ++i)
            walk += list.At(i) == it.GetValue() ? std::to_string(i) : "";
    }
    return walk;
}

class FiltersTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        for (short code : {c_sA, c_sB})
            MCFactoryRegistry::RegisterAliasProperty(code, code == c_sA ? "FirstA" : "FirstB",
                                                     MCCodes::pInteger, true, false, false, false);
    }
};

}  // namespace

// A sorted walk keeps its snapshot over Reset(false); a filtered walk is live but its count is the one of
// its last rebuild. Copied handles share one cursor, also across self-assignment and FreeImplementation.
TEST_F(FiltersTest, SortedWalksKeepTheirSnapshotAndCopiesShareOneCursor) {
    TestNode* node = MakeNode();  // its embedded 7101 starts nulled
    SetLong(node, c_sB, 1);
    new MCSPropertyT<long>(-5, node);  // a user-defined type code, nulled; the object frees it
    MCPropertySortOnType byType;
    MCPropertyFilterOnNotNulled notNulled;
    MCPropertyListIter sorted(node, nullptr, &byType), filtered(node, &notNulled);
    EXPECT_EQ(sorted.GetValue(), nullptr);  // nothing before the first step
    EXPECT_EQ(Walk(sorted) + " #" + std::to_string(filtered.GetCount()), "-5 132 7101 7432 #2");
    SetLong(node, TestNode::c_sEmbedded, 1);
    SetLong(node, c_sA, 1);
    sorted.Reset(false);
    EXPECT_EQ(Walk(sorted), "-5 132 7101 7432");
    EXPECT_EQ(Walk(filtered) + " #" + std::to_string(filtered.GetCount()), "132 7101 7432 7431 #2");
    filtered.Reset(true);
    EXPECT_EQ(filtered.GetCount(), 4);
    ZVTSList<short> none;
    MCItemFilterOnPresenceInList nothing(&none);
    MCPropertyListIter empty(node, &nothing, &byType);
    EXPECT_TRUE(empty.GetCount() == 0 && !++empty);

    MCObject* object = Make();
    SetLong(object, c_sA, 1);
    MCPropertyListIter first(object), copy(first);
    ASSERT_TRUE(++copy);
    MCPropertyListIter& alias = first;
    first = alias;  // must not let go of what it is about to hold
    copy.FreeImplementation();
    EXPECT_TRUE(copy.GetCount() == -1 && !++copy);
    EXPECT_EQ(Walk(first), std::to_string(c_sA));
    copy = first;
    EXPECT_FALSE(++copy);
    EXPECT_EQ(MCPropertyListIter(nullptr).GetCount(), -1);
    // So do ownee handles; Reset takes the shared cursor back to the start.
    MCObject *firstOwnee = Make(object), *second = Make(object);
    MCOwneeListIter ownees(object), other(second), shared(ownees);
    ASSERT_TRUE(++shared);
    other = shared;
    EXPECT_EQ(Walk(other), Id(second));
    ownees.Reset(true);
    EXPECT_EQ(Walk(shared), Id(firstOwnee) + " " + Id(second));
}

TEST_F(FiltersTest, OwneeWalksStandExpungingTheCurrentOwneeAndFilter) {
    MCObject *root = Make(), *plain = Make(root);
    TestNode* bare = MakeNode(root);
    MCObject* named = Named("n", root, TestNode::c_sType);
    const std::string nodes = Id(bare) + " " + Id(named);
    // Only the node whose Parent is `plain` matches; `plain` has one too but is of another type.
    for (MCObject* holder : {named, plain, static_cast<MCObject*>(bare)})
        Link(holder, MCCodes::pParent, holder == bare ? named : plain);
    SetLong(bare, TestNode::c_sEmbedded, 0);
    MCOwneeFilterOnType anyObject(1), nodeType(TestNode::c_sType);
    // `named`'s embedded property stays nulled: it has no value, so it does not count as present.
    MCOwneeFilterOnPropExistence withName(TestNode::c_sType, 147, true),
        withEmbedded(TestNode::c_sType, TestNode::c_sEmbedded, true);
    MCOwneeFilterOnPropExistence withoutName(TestNode::c_sType, 147, false), exactOnly(1, 147, false);
    // Other types, absent and non-reference properties never match a reference value.
    MCOwneeFilterOnPropRefValue byRef(TestNode::c_sType, TestNode::c_sEmbedded, nullptr);
    MCOwneeFilterOnPropRefValue byParent(TestNode::c_sType, 152, plain);
    const struct {
        ZVTFilter<MCObject*>* m_pxFilter;
        std::string m_sWalk;
    } cases[] = {
        {&anyObject, Id(plain) + " " + nodes + " #3"},
        {&nodeType, nodes + " #2"},
        {&withName, Id(named) + " #1"},
        {&withoutName, Id(bare) + " #1"},
        {&withEmbedded, Id(bare) + " #1"},
        {&exactOnly, " #0"},
        {&byRef, " #0"},
        {&byParent, Id(named) + " #1"},
    };
    MCObject* nothing = nullptr;
    for (size_t i = 0; i < std::size(cases); ++i) {
        MCOwneeListIter it(root, cases[i].m_pxFilter);
        const std::string count = " #" + std::to_string(it.GetCount());
        EXPECT_EQ(Walk(it) + count, cases[i].m_sWalk) << i;
        EXPECT_FALSE(cases[i].m_pxFilter->Test(nothing)) << i;  // a null object passes no filter
    }
    MCOwneeListIter all(root);
    EXPECT_EQ(all.GetCount(), 3);
    EXPECT_EQ(Walk(all, [root](MCObject* ownee) { root->DestroyOwnedObject(ownee); }),
              Id(plain) + " " + nodes);
    EXPECT_EQ(root->GetFirstOwnee(), nullptr);
}

TEST_F(FiltersTest, AbsenceLooksBehindAliasesPresenceDoesNot) {
    MCObject* object = Named("n");  // 147, an alias of String (91)
    MCSPropertyAccessorT<ZVTString> text{ZVTString("t")};
    ASSERT_TRUE(object->SetProperty(MCCodes::pString, text, MCPropertyAccessor::accessAdd));
    SetLong(object, 87, 1);
    MCItem* name = PropertyOf(object, MCCodes::pName, false);
    MCItem* string = PropertyOf(object, MCCodes::pString, false);
    MCItem* integer = PropertyOf(object, MCCodes::pInteger, false);
    ZVTSList<short> stringType = ListOf<short>({91}), nameType = ListOf<short>({147});
    MCItemFilterOnPresenceInList presentString(&stringType), presentName(&nameType), presentNull(nullptr);
    MCItemFilterOnAbsenceInList absentString(&stringType), absentName(&nameType), absentNull(nullptr);
    const struct {
        MCItem* m_pxItem;
        ZVTFilter<MCItem*>* m_pxFilter;
        bool m_bPasses;
    } cases[] = {
        {name, &presentString, false},  {name, &absentString, false},   {string, &presentString, true},
        {string, &absentString, false}, {integer, &absentString, true}, {name, &presentName, true},
        {name, &absentName, false},     {string, &absentName, true},    {name, &presentNull, false},
        {name, &absentNull, false},     {nullptr, &absentName, false},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        MCItem* item = cases[i].m_pxItem;
        EXPECT_EQ(cases[i].m_pxFilter->Test(item), cases[i].m_bPasses) << i;
    }
    ZVTSList<ZVTFilter<MCItem*>*> filters;
    MCItemFilterOfFilters all(&filters), none(nullptr);
    EXPECT_TRUE(all.Test(integer) && !none.Test(integer));
    filters.Append(&absentName);
    filters.Append(&absentString);
    MCPropertyListIter it(object, &all);  // item filters serve the property walk as they are
    EXPECT_EQ(Walk(it), "132 87");
}

// Default equality compares the properties of the first type only, the id left out; strategies may say
// otherwise. Parallelism ranks type, then clone id, then name.
TEST_F(FiltersTest, EqualityComparesFirstTypesWithoutTheIdAndParallelismRanksTypeCloneIdAndName) {
    MCObject *left = Named("same"), *right = Named("same"), *otherName = Named("m"), *nameless = Make();
    MCObject *node = Named("same", nullptr, TestNode::c_sType), *clone = Make();
    SetLong(clone, 582, otherName->GetId());  // CloneId
    MCProperty *name = PropertyOf(left, MCCodes::pName, false),
               *rightName = PropertyOf(right, MCCodes::pName, false);
    const struct {
        const MCItem* self;
        MCItem* first;
        bool useCloneId;
        long expected;
    } cases[] = {
        {left, nullptr, false, 10},   {left, right, false, 10},     {left, otherName, true, 5},
        {nameless, left, false, 5},   {left, node, true, 0},        {left, name, false, 0},
        {otherName, clone, true, 10}, {otherName, clone, false, 5}, {name, nullptr, false, 10},
        {name, clone, false, 0},      {name, rightName, false, 10},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.self->GetParallelism(c.first, nullptr, c.useCloneId), c.expected) << &c - cases;
    EXPECT_TRUE(left->IsDefinedBy(left, 0));
    EXPECT_FALSE(left->IsDefinedBy(right, 0));

    EXPECT_TRUE(left->IsEqualTo(right, nullptr, nullptr));
    MCPropertyValueEqualStrategy values(false);  // a null filter lets the id in
    EXPECT_FALSE(left->IsEqualTo(right, nullptr, &values));
    ZVTSList<short> idOnly = ListOf<short>({132});
    MCItemFilterOnAbsenceInList notId(&idOnly);
    FilteredValueStrategy withoutId(&notId);
    EXPECT_TRUE(left->IsEqualTo(right, nullptr, &withoutId));
    RefusingObjectStrategy refuse;
    EXPECT_FALSE(left->IsEqualTo(left, &refuse, &values));
    // Null properties pass no filter, compare unequal and sort to nothing.
    MCProperty* noProperty = nullptr;
    MCPropertySortOnType().Sort(nullptr, 2);
    EXPECT_FALSE(MCPropertyFilterOnNotNulled().Test(noProperty) ||
                 values.AreEqual(nullptr, nullptr, nullptr, nullptr));

    SetLong(left, c_sA, 1);
    EXPECT_FALSE(left->IsEqualTo(right, nullptr, nullptr));
    EXPECT_FALSE(right->IsEqualTo(left, nullptr, nullptr));
    EXPECT_FALSE(left->IsPropertyEqual(c_sA, right, nullptr));
    EXPECT_TRUE(left->IsPropertyEqual(c_sB, right, nullptr));  // absent on both
    SetLong(right, c_sA, 2);
    EXPECT_FALSE(right->IsEqualTo(left, nullptr, nullptr));
    SetLong(right, c_sA, 1);
    EXPECT_TRUE(right->IsEqualTo(left, nullptr, nullptr));
    EXPECT_TRUE(left->IsEqualTo(PropertyOf(left, c_sA, false), right, PropertyOf(right, c_sA, false), false));
    EXPECT_FALSE(left->IsEqualTo(PropertyOf(left, c_sA, false), right, nullptr, false));
    // Objects of different types differ by any compared property.
    EXPECT_FALSE(left->IsPropertyEqual(MCCodes::pName, node, nullptr));
}

// A walk over a list or a list property stays at its end rather than starting over; a filter and a sorter
// apply to both; a removal takes out the values it carries.
TEST_F(FiltersTest, ValueWalksOverListsAndListPropertiesOfEachType) {
    auto check = [this](auto first, auto second, auto third, short type) {
        using T = decltype(first);
        SCOPED_TRACE(type);
        ZVTSList<T> list = ListOf<T>({first, second, third});
        MCVPropertyIterT<T> plain(&list);
        EXPECT_EQ(Walk(plain, list), "012");
        EXPECT_FALSE(++plain);  // stays at the end rather than starting over
        Descending<T> descending;
        Refuse<T> notFirst(first);
        MCVPropertyIterT<T> sorted(&list, &notFirst, &descending);
        EXPECT_EQ(Walk(sorted, list) + " #" + std::to_string(sorted.GetCount()), "12 #2");

        MCObject* object = Make();
        MCVPropertyAccessorT<T> accessor(list), middle(second);
        ASSERT_TRUE(object->SetProperty(type, accessor, MCPropertyAccessor::accessReplace));
        MCVPropertyIterT<T> held(object, type, &notFirst);
        EXPECT_EQ(Walk(held, list) + " #" + std::to_string(held.GetCount()), "12 #2");
        ASSERT_TRUE(object->SetProperty(type, middle, MCPropertyAccessor::accessRemove));
        MCVPropertyIterT<T> rest(object, type);
        EXPECT_EQ(Walk(rest, list), "02");
    };
    check(1.5f, 3.5f, 2.5f, MCCodes::pFloatList);
    check(ZVTString("b"), ZVTString("d"), ZVTString("c"), MCCodes::pStringList);
}

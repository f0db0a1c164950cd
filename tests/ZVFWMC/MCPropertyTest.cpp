// Properties: the property set's segments and slot reuse, comparison, and the stored form of every core
// value type (round trip, calculated properties, reading through an accessor, short streams).

#include <sstream>
#include <string>
#include <vector>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include "support/ModelTestSupport.h"

namespace {

// Integer aliases 7201 to 7208, so one object can hold many properties.
constexpr short c_sFirstAlias = 7201;

void RegisterAliases() {
    for (short code = c_sFirstAlias; code < c_sFirstAlias + 8; ++code)
        MCFactoryRegistry::RegisterAliasProperty(code, ZVTString(("Alias" + std::to_string(code)).c_str()),
                                                 87, false, false, false, false);
}

// The property types of a set in iteration order.
std::string Slots(const MCObject* object) {
    std::string types;
    MCPropertySetIter it(object->GetPropertySet());
    while (++it)
        types += (types.empty() ? "" : " ") + std::to_string(it.GetValue()->GetType());
    return types;
}

class PropertyTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        RegisterAliases();
    }
    MCProperty* Add(MCObject* object, short type) {
        EXPECT_TRUE(SetLong(object, type, type));
        return const_cast<MCProperty*>(object->FindProperty(type, false));
    }
};

}  // namespace

TEST_F(PropertyTest, SegmentsGrowByFourAndFreedSlotsAreReused) {
    MCObject* object = Make();
    for (short code = c_sFirstAlias; code < c_sFirstAlias + 4; ++code)
        Add(object, code);
    // The id fills slot 0 of the first segment, so the fourth alias opens a second segment.
    EXPECT_EQ(object->GetPropertySet().GetCount(), 5);
    EXPECT_EQ(Slots(object), "132 7201 7202 7203 7204");

    MCSPropertyRawAccessorT<long> accessor;
    ASSERT_TRUE(object->NullProperty(7202, accessor));
    Add(object, 7205);
    EXPECT_EQ(Slots(object), "132 7201 7205 7203 7204");  // the freed slot, not the end

    // Emptying the second segment keeps it linked; iteration runs past its empty slots.
    ASSERT_TRUE(object->NullProperty(7204, accessor));
    EXPECT_EQ(Slots(object), "132 7201 7205 7203");
    EXPECT_EQ(object->GetPropertySet().GetCount(), 4);
    Add(object, 7206);
    Add(object, 7207);
    EXPECT_EQ(Slots(object), "132 7201 7205 7203 7206 7207");
}

// The set keeps no count of its own: what it counts and walks is what its slots hold, across segments,
// also once it has been emptied.
TEST_F(PropertyTest, ASetCountsAndWalksWhatItsSlotsHold) {
    MCObject* object = Make();
    std::vector<MCProperty*> properties;
    for (short code = c_sFirstAlias; code < c_sFirstAlias + 5; ++code)
        properties.push_back(Add(object, code));
    MCPropertySet set;
    const auto state = [&set] {
        std::string text;
        MCPropertySetIter it(set);
        while (++it)
            text += it.GetValue() ? std::to_string(it.GetValue()->GetType()) + " " : "- ";
        return text + "#" + std::to_string(set.GetCount());
    };
    EXPECT_EQ(state(), "#0");
    for (MCProperty* property : properties)
        ASSERT_TRUE(set.Insert(property));
    EXPECT_EQ(state(), "7201 7202 7203 7204 7205 #5");
    for (MCProperty* property : properties)
        ASSERT_TRUE(set.Delete(property));
    EXPECT_EQ(state(), "#0");
    ASSERT_TRUE(set.Insert(properties[2]));
    EXPECT_EQ(state(), "7203 #1");
}

TEST_F(PropertyTest, OneOfEachTypeEvenBehindAFreeSlot) {
    MCObject* object = Make();
    MCProperty* first = Add(object, 7201);
    MCProperty* second = Add(object, 7202);
    MCPropertySet& set = const_cast<MCPropertySet&>(object->GetPropertySet());
    // Free slot 1, then try a duplicate of the property that stands behind it.
    ASSERT_TRUE(set.Delete(first));
    EXPECT_FALSE(set.Insert(second));
    EXPECT_EQ(set.GetCount(), 2);
    EXPECT_FALSE(set.Delete(first));
    EXPECT_TRUE(set.Insert(first));
    EXPECT_EQ(Slots(object), "132 7201 7202");
    MCProperty* found = nullptr;
    EXPECT_FALSE(set.FindValue(7203, found));
    EXPECT_EQ(found, nullptr);
    EXPECT_TRUE(set.FindValue(7202, found));
    EXPECT_EQ(found, second);
    // A second property of a type through its constructor is refused before the set sees it.
    EXPECT_THROW(new MCSPropertyT<long>(7202, object), EXDuplicateProperty);
    EXPECT_THROW(new MCSPropertyT<long>(7203, nullptr), EXNullOwner);
    EXPECT_EQ(set.GetCount(), 3);
}

TEST_F(PropertyTest, ComparisonIsByTypeClassAndValueInOrder) {
    MCObject* left = Make();
    MCObject* right = Make();
    ZVTSList<long> oneTwo, twoOne;
    oneTwo.Append(1);
    oneTwo.Append(2);
    twoOne.Append(2);
    twoOne.Append(1);
    MCVPropertyAccessorT<long> a(oneTwo), b(twoOne);
    ASSERT_TRUE(left->SetProperty(MCCodes::pIntegerList, a, 2));
    ASSERT_TRUE(right->SetProperty(MCCodes::pIntegerList, b, 2));
    EXPECT_FALSE(left->FindProperty(MCCodes::pIntegerList, false)
                     ->IsEqualTo(right->FindProperty(MCCodes::pIntegerList, false), false));
    ASSERT_TRUE(right->SetProperty(MCCodes::pIntegerList, a, 2));
    EXPECT_TRUE(left->FindProperty(MCCodes::pIntegerList, false)
                    ->IsEqualTo(*right->FindProperty(MCCodes::pIntegerList, false), false));

    MCSPropertyAccessorT<double> one(1.0), almost(1.0 + 1e-15);
    ASSERT_TRUE(left->SetProperty(MCCodes::pDouble, one, 1));
    ASSERT_TRUE(right->SetProperty(MCCodes::pDouble, almost, 1));
    EXPECT_FALSE(left->FindProperty(MCCodes::pDouble, false)
                     ->IsEqualTo(right->FindProperty(MCCodes::pDouble, false), false));

    // Same value under another type code, or a null partner, is not equal.
    const MCProperty* first = Add(left, 7201);
    const MCProperty* second = Add(left, 7202);
    ASSERT_TRUE(SetLong(left, 7202, 7201));
    EXPECT_FALSE(first->IsEqualTo(second, false));
    EXPECT_FALSE(first->IsEqualTo(nullptr, false));
    EXPECT_FALSE(first->IsEqualTo(left->FindProperty(MCCodes::pDouble, false), false));
}

// ---------------------------------------------------------------------------------------------------
// The stored form

namespace {

template <class T>
struct Sample;
template <>
struct Sample<long> {
    static constexpr short c_sType = MCCodes::pInteger;
    static long Value() { return -123456; }
};
template <>
struct Sample<double> {
    static constexpr short c_sType = MCCodes::pDouble;
    static double Value() { return 2.5e-300; }
};
template <>
struct Sample<float> {
    static constexpr short c_sType = MCCodes::pFloat;
    static float Value() { return -0.375f; }
};
template <>
struct Sample<ZVTString> {
    static constexpr short c_sType = MCCodes::pString;
    static ZVTString Value() { return ZVTString("caf\xc3\xa9"); }
};
template <>
struct Sample<ZvUCObjectId> {
    static constexpr short c_sType = MCCodes::pOriginId;
    static ZvUCObjectId Value() {
        ZvUCObjectId id;
        for (int i = 0; i < ZvUCId::c_nWordCount; ++i)
            id.SetWord(i, 0x01020304u * static_cast<std::uint32_t>(i + 1));
        return id;
    }
};
tgt_target g_xTarget("stored target");
template <>
struct Sample<tgt_target*> {
    static constexpr short c_sType = MCCodes::pTargetReference;
    static tgt_target* Value() { return &g_xTarget; }
};

}  // namespace

template <class T>
class StoredValueTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        HUBTargetRegistry::RegisterTarget(&g_xTarget);
    }
    void TearDown() override {
        HUBTargetRegistry::UnregisterTarget(&g_xTarget);
        ModelTest::TearDown();
    }
};

using StoredTypes = ::testing::Types<long, double, float, ZVTString, ZvUCObjectId, tgt_target*>;
TYPED_TEST_SUITE(StoredValueTest, StoredTypes);

TYPED_TEST(StoredValueTest, SingleValuesRoundTripAndFeedOnlyActiveAccessors) {
    using T = TypeParam;
    const short type = Sample<T>::c_sType;
    MCObject* source = this->Make();
    MCSPropertyAccessorT<T> setter(Sample<T>::Value());
    ASSERT_TRUE(source->SetProperty(type, setter, 1));
    auto* property = const_cast<MCProperty*>(source->FindProperty(type, false));
    ASSERT_TRUE(source->SetPropertyFlag(property, MCItem::itemTemp, true));

    std::stringstream bytes;
    MCStream out(bytes, ZVTStream::binary);
    property->SaveTo(out);
    property->SaveTo(out);
    property->SaveTo(out);

    MCStream in(bytes, ZVTStream::binary);
    MCObject* target = this->Make();
    auto* copy = static_cast<MCProperty*>(MCFactoryRegistry::CreateItem(type, target, nullptr, nullptr));
    copy->RestoreFrom(in);
    EXPECT_TRUE(copy->IsEqualTo(property, false));
    EXPECT_EQ(copy->GetFlags(), MCItem::itemTemp);

    // Through an accessor: the property stays as it is; only an active accessor of the class takes the value.
    MCSPropertyRawAccessorT<T> raw(T{});
    copy->RestoreFrom(in, raw);
    EXPECT_EQ(raw.GetFlags(), MCItem::itemTemp);
    EXPECT_TRUE(raw.GetValue() == T{});
    MCSPropertyAccessorT<T> active;
    copy->RestoreFrom(in, active);
    EXPECT_TRUE(active.GetValue() == Sample<T>::Value());
    EXPECT_FALSE(in.fail());
    char extra = 0;
    in >> extra;
    EXPECT_TRUE(in.fail());  // the three records were read to their last byte
}

TEST_F(PropertyTest, ListsRoundTripAndShortStreamsKeepWhatWasRead) {
    MCObject* source = Make();
    ZVTSList<ZVTString> names;
    names.Append("a");
    names.Append(ZVTString());
    names.Append("ccc");
    MCVPropertyAccessorT<ZVTString> setter(names);
    ASSERT_TRUE(source->SetProperty(MCCodes::pStringList, setter, 2));
    std::stringstream bytes;
    MCStream out(bytes, ZVTStream::binary);
    const_cast<MCProperty*>(source->FindProperty(MCCodes::pStringList, false))->SaveTo(out);
    const std::string image = bytes.str();
    EXPECT_EQ(image.size(), 2u + 4u + (4 + 1) + (4 + 0) + (4 + 3));

    for (size_t cut : {image.size(), image.size() - 1, size_t{6}, size_t{1}}) {
        SCOPED_TRACE(cut);
        std::stringstream part(image.substr(0, cut));
        MCStream in(part, ZVTStream::binary);
        MCVPropertyAccessorT<ZVTString> reader;
        const_cast<MCProperty*>(source->FindProperty(MCCodes::pStringList, false))->RestoreFrom(in, reader);
        const size_t expected = cut == image.size() ? 3u : cut == image.size() - 1 ? 2u : 0u;
        EXPECT_EQ(reader.GetList()->Entries(), expected);
        EXPECT_EQ(in.fail(), cut != image.size());
    }
    // An accessor writes and reads its list as the property writes its value, without the flag word.
    std::stringstream held;
    MCStream heldOut(held, ZVTStream::binary), heldIn(held, ZVTStream::binary);
    setter.SaveTo(heldOut);
    EXPECT_EQ(held.str(), image.substr(2));
    MCVPropertyAccessorT<ZVTString> back;
    back.RestoreFrom(heldIn);
    EXPECT_TRUE(back.GetList()->Entries() == 3 && back.GetList()->At(2) == ZVTString("ccc"));
}

TEST_F(PropertyTest, CalculatedPropertiesStoreTheirShapeOnly) {
    MCObject* object = Make();
    ASSERT_TRUE(SetLong(object, 87, 77));
    ZVTSList<long> values;
    values.Append(5);
    values.Append(6);
    MCVPropertyAccessorT<long> list(values);
    ASSERT_TRUE(object->SetProperty(MCCodes::pIntegerList, list, 2));
    auto* single = const_cast<MCProperty*>(object->FindProperty(MCCodes::pInteger, false));
    auto* multi = const_cast<MCProperty*>(object->FindProperty(MCCodes::pIntegerList, false));
    ASSERT_TRUE(object->SetPropertyFlag(single, MCItem::itemPreFetch, true));
    ASSERT_TRUE(object->SetPropertyFlag(multi, MCItem::itemPreFetch, true));

    std::stringstream bytes;
    MCStream out(bytes, ZVTStream::binary);
    single->SaveTo(out);
    multi->SaveTo(out);
    // Flags 0x0010; then flags, the count 1 and one zero element.
    EXPECT_EQ(bytes.str(), std::string("\x10\x00\x10\x00\x01\x00\x00\x00\x00\x00\x00\x00", 12));

    MCStream in(bytes, ZVTStream::binary);
    single->RestoreFrom(in);
    EXPECT_EQ(static_cast<MCSPropertyT<long>*>(single)->GetValue(), 77);  // nothing read for the value
    multi->RestoreFrom(in);
    EXPECT_EQ(static_cast<MCVPropertyT<long>*>(multi)->GetCount(), 1);
}

// A host's visitor of one value type meets each kind through its own VisitType; only CreateAndVisitProperty
// makes a property that is absent, and a property of another value type is passed over.
TEST_F(PropertyTest, VisitorsMeetEachKindAndOnlyCreateAndVisitMakesTheProperty) {
    struct Longs : MCPropertyVisitorT<long> {
        void VisitType(MCVPropertyT<long>* p) override {
            m_sSeen += "V" + std::to_string(p->GetType()) + " ";
        }
        void VisitType(MCSPropertyT<long>* p) override {
            m_sSeen += "S" + std::to_string(p->GetType()) + " ";
        }
        std::string m_sSeen;
    } visitor;
    MCObject* object = Make();
    for (short type : {MCCodes::pInteger, MCCodes::pIntegerList, MCCodes::pString}) {
        object->VisitProperty(type, &visitor);
        object->CreateAndVisitProperty(type, &visitor);
        object->VisitProperty(type, &visitor);
    }
    const std::string single = std::to_string(MCCodes::pInteger),
                      list = std::to_string(MCCodes::pIntegerList);
    EXPECT_EQ(visitor.m_sSeen, "S" + single + " S" + single + " V" + list + " V" + list + " ");
    EXPECT_NE(object->FindProperty(MCCodes::pString, true), nullptr);
}

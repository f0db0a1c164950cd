// Properties: the property set's segments and slot reuse, comparison, the stored form of values (round
// trip, calculated properties, reading through an accessor, short streams) and visitors.

#include <sstream>
#include "support/ModelTestSupport.h"

namespace {

// Integer aliases 7201 to 7208, so one object can hold many properties.
constexpr short c_sFirstAlias = 7201;

// The property types of a set in iteration order, "-" for an empty slot, then the count.
std::string Slots(const MCPropertySet& set) {
    std::string types;
    MCPropertySetIter it(set);
    while (++it)
        types += (it.GetValue() ? std::to_string(it.GetValue()->GetType()) : "-") + " ";
    return types + "#" + std::to_string(set.GetCount());
}

class PropertyTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        for (short code = c_sFirstAlias; code < c_sFirstAlias + 8; ++code)
            MCFactoryRegistry::RegisterAliasProperty(
                code, ZVTString(("Alias" + std::to_string(code)).c_str()), 87, false, false, false, false);
    }
    MCProperty* Add(MCObject* object, short type) {
        EXPECT_TRUE(SetLong(object, type, type));
        return PropertyOf(object, type);
    }
};

}  // namespace

// Segments of four slots; the id fills slot 0 of the first. A freed slot is reused before the end, an
// emptied segment stays linked and walks are run past it; one property of each type, even behind a free
// slot. The set keeps no count of its own: it counts what its slots hold, also once emptied.
TEST_F(PropertyTest, SegmentsGrowByFourAndFreedSlotsAreReused) {
    MCObject* object = Make();
    MCProperty* first = Add(object, c_sFirstAlias);
    for (short code = c_sFirstAlias + 1; code < c_sFirstAlias + 5; ++code)
        Add(object, code);
    auto& set = const_cast<MCPropertySet&>(object->GetPropertySet());
    MCSPropertyRawAccessorT<long> accessor;
    ASSERT_TRUE(object->NullProperty(7202, accessor));
    Add(object, 7206);
    ASSERT_TRUE(object->NullProperty(7204, accessor) && object->NullProperty(7205, accessor));
    EXPECT_EQ(Slots(set), "132 7201 7206 7203 #4");
    MCProperty* seventh = Add(object, 7207);
    ASSERT_TRUE(set.Delete(first));
    EXPECT_TRUE(!set.Insert(seventh) && !set.Delete(first) && set.Insert(first));
    EXPECT_EQ(Slots(set), "132 7201 7206 7203 7207 #5");
    MCProperty* found = nullptr;
    EXPECT_FALSE(set.FindValue(7208, found) || found);
    // A second property of a type through its constructor is refused before the set sees it.
    EXPECT_THROW(new MCSPropertyT<long>(7207, object), EXDuplicateProperty);
    EXPECT_THROW(new MCSPropertyT<long>(7208, nullptr), EXNullOwner);
    MCPropertySet own;  // emptied, it keeps its segment and walks nothing
    ASSERT_TRUE(own.Insert(seventh) && own.Delete(seventh));
    EXPECT_EQ(Slots(own), "#0");
}

TEST_F(PropertyTest, ComparisonIsByTypeClassAndValueInOrder) {
    MCObject *left = Make(), *right = Make();
    MCVPropertyAccessorT<long> a(ListOf({1L, 2L})), b(ListOf({2L, 1L}));
    ASSERT_TRUE(left->SetProperty(MCCodes::pIntegerList, a, 2) &&
                right->SetProperty(MCCodes::pIntegerList, b, 2));
    const MCProperty* list = PropertyOf(left, MCCodes::pIntegerList);
    EXPECT_FALSE(list->IsEqualTo(*PropertyOf(right, MCCodes::pIntegerList), false));
    ASSERT_TRUE(right->SetProperty(MCCodes::pIntegerList, a, 2));
    EXPECT_TRUE(list->IsEqualTo(*PropertyOf(right, MCCodes::pIntegerList), false));
    // Same value under another type code, a null partner or another value class is not equal.
    const MCProperty* first = Add(left, 7201);
    ASSERT_TRUE(SetLong(left, 7202, 7201));
    EXPECT_FALSE(first->IsEqualTo(PropertyOf(left, 7202), false));
    EXPECT_FALSE(first->IsEqualTo(nullptr, false));
    EXPECT_FALSE(first->IsEqualTo(list, false));
}

// Three records of a value: restored into a new property, then through accessors, where the property
// stays as it is and only an active accessor of the class takes the value. A record is the flag word and
// the value, little-endian in fixed widths on every platform (a string: its length, then its bytes), so
// stored models travel.
TEST_F(PropertyTest, StoredValuesRoundTripAndFeedOnlyActiveAccessors) {
    using namespace std::string_literals;
    auto roundTrip = [this](auto value, short type, std::string stored = "") {
        using T = decltype(value);
        SCOPED_TRACE(type);
        MCObject* source = Make();
        MCSPropertyAccessorT<T> setter(value);
        ASSERT_TRUE(source->SetProperty(type, setter, 1));
        MCProperty* property = PropertyOf(source, type);
        ASSERT_TRUE(source->SetPropertyFlag(property, MCItem::itemTemp, true));
        std::stringstream bytes;
        MCStream out(bytes, ZVTStream::binary), in(bytes, ZVTStream::binary);
        for (int record = 0; record < 3; ++record)
            property->SaveTo(out);
        EXPECT_EQ(stored.empty() ? "" : bytes.str(), stored + stored + stored);

        auto* copy = static_cast<MCProperty*>(MCFactoryRegistry::CreateItem(type, Make(), nullptr, nullptr));
        copy->RestoreFrom(in);
        EXPECT_TRUE(copy->IsEqualTo(property, false) && copy->GetFlags() == MCItem::itemTemp);
        MCSPropertyRawAccessorT<T> raw(T{});
        MCSPropertyAccessorT<T> active;
        copy->RestoreFrom(in, raw);
        copy->RestoreFrom(in, active);
        EXPECT_TRUE(raw.GetFlags() == MCItem::itemTemp && raw.GetValue() == T{} &&
                    active.GetValue() == value);
        char extra = 0;  // the three records were read to their last byte
        EXPECT_TRUE(!in.fail() && (in >> extra).fail());
    };
    roundTrip(-123456L, MCCodes::pInteger, "\x01\x00\xc0\x1d\xfe\xff"s);  // the flag word is itemTemp
    roundTrip(2.5e-300, MCCodes::pDouble, "\x01\x00\x2f\x30\xb7\xb3\xa7\xc9\xba\x01"s);
    roundTrip(-0.375f, MCCodes::pFloat, "\x01\x00\x00\x00\xc0\xbe"s);
    roundTrip(ZVTString("caf\xc3\xa9"), MCCodes::pString, "\x01\x00\x05\x00\x00\x00\x63\x61\x66\xc3\xa9"s);
    ZvUCObjectId origin;
    for (int i = 0; i < ZvUCId::c_nWordCount; ++i)
        origin.SetWord(i, 0x01020304u * static_cast<std::uint32_t>(i + 1));
    roundTrip(origin, MCCodes::pOriginId);
    tgt_target target("stored target");  // stored by name, found again through the registry
    ASSERT_TRUE(HUBTargetRegistry::RegisterTarget(&target));
    roundTrip(&target, MCCodes::pTargetReference);
    EXPECT_TRUE(HUBTargetRegistry::UnregisterTarget(&target));  // the target's end finds it gone
}

// A list's record is the flag word, the count and each entry; a short stream keeps the entries read whole.
// An accessor writes its list as the property does, without the flag word. A calculated value or list
// stores its shape only: the flags, for a list also the count 1 and one zero element.
TEST_F(PropertyTest, ListsRoundTripShortStreamsKeepWhatWasReadAndCalculatedValuesStoreTheirShape) {
    MCObject* source = Make();
    MCVPropertyAccessorT<ZVTString> setter(ListOf({ZVTString("a"), ZVTString(), ZVTString("ccc")}));
    ASSERT_TRUE(source->SetProperty(MCCodes::pStringList, setter, 2));
    MCProperty* property = PropertyOf(source, MCCodes::pStringList);
    std::stringstream bytes, held;
    MCStream out(bytes, ZVTStream::binary), in(bytes, ZVTStream::binary), heldOut(held, ZVTStream::binary),
        heldIn(held, ZVTStream::binary);
    property->SaveTo(out);
    const std::string image = bytes.str();
    EXPECT_EQ(image.size(), 2u + 4u + (4 + 1) + (4 + 0) + (4 + 3));
    for (size_t cut : {image.size(), image.size() - 1, size_t{6}, size_t{1}}) {
        SCOPED_TRACE(cut);
        std::stringstream part(image.substr(0, cut));
        MCStream partIn(part, ZVTStream::binary);
        MCVPropertyAccessorT<ZVTString> reader;
        property->RestoreFrom(partIn, reader);
        EXPECT_EQ(reader.GetList()->Entries(), cut == image.size() ? 3u : cut == image.size() - 1 ? 2u : 0u);
        EXPECT_EQ(partIn.fail(), cut != image.size());
    }
    setter.SaveTo(heldOut);
    EXPECT_EQ(held.str(), image.substr(2));
    MCVPropertyAccessorT<ZVTString> back;
    back.RestoreFrom(heldIn);
    EXPECT_TRUE(back.GetList()->Entries() == 3 && back.GetList()->At(2) == "ccc");

    ASSERT_TRUE(SetLong(source, MCCodes::pInteger, 77));
    MCVPropertyAccessorT<long> list(ListOf({5L, 6L}));
    ASSERT_TRUE(source->SetProperty(MCCodes::pIntegerList, list, 2));
    bytes.str("");
    for (short type : {MCCodes::pInteger, MCCodes::pIntegerList}) {
        ASSERT_TRUE(source->SetPropertyFlag(PropertyOf(source, type), MCItem::itemPreFetch, true));
        PropertyOf(source, type)->SaveTo(out);
    }
    EXPECT_EQ(bytes.str(), std::string("\x10\x00\x10\x00\x01\x00\x00\x00\x00\x00\x00\x00", 12));
    for (short type : {MCCodes::pInteger, MCCodes::pIntegerList})
        PropertyOf(source, type)->RestoreFrom(in);
    EXPECT_EQ(GetLong(source, MCCodes::pInteger), "77");  // nothing read for the value
    EXPECT_EQ(static_cast<MCVPropertyT<long>*>(PropertyOf(source, MCCodes::pIntegerList))->GetCount(), 1);
}

// A host's visitor of one value type meets each kind through its own VisitType; only CreateAndVisitProperty
// makes a property that is absent, and a property of another value type is passed over.
TEST_F(PropertyTest, VisitorsMeetEachKindAndOnlyCreateAndVisitMakesTheProperty) {
    struct Longs : MCPropertyVisitorT<long> {
        void VisitType(MCVPropertyT<long>* p) override { seen += "V" + std::to_string(p->GetType()) + " "; }
        void VisitType(MCSPropertyT<long>* p) override { seen += "S" + std::to_string(p->GetType()) + " "; }
        std::string seen;
    } visitor;
    MCObject* object = Make();
    for (short type : {MCCodes::pInteger, MCCodes::pIntegerList, MCCodes::pString}) {
        object->VisitProperty(type, &visitor);
        object->CreateAndVisitProperty(type, &visitor);
        object->VisitProperty(type, &visitor);
    }
    EXPECT_EQ(visitor.seen, "S87 S87 V88 V88 ");
    EXPECT_NE(object->FindProperty(MCCodes::pString, true), nullptr);
}

// Covers the modern layer: host classes and named registration, typed creation, reads and writes,
// subscriptions and rules as handles, the ranges, save and restore.

#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

#include "ModelCore/ModelCoreModern.h"
#include "support/PersTestSupport.h"

namespace {

constexpr short c_sPart = 7601, c_sSubPart = 7602;
// What the rule below treats as an edit that took its object down.
constexpr long c_lDestroying = 13;
using Outcome = mc::EditResult::Outcome;

class Part : public mc::HostClass<c_sPart> {
    friend mc::FactoryOf<Part>;
    using HostClass::HostClass;
};

class SubPart : public mc::HostClass<c_sSubPart, Part> {
    friend mc::FactoryOf<SubPart>;
    using HostClass::HostClass;
};

// The persistence root the controller saves under.
class Model : public mc::HostClass<MCCodes::tPersistenceRoot> {
    friend mc::FactoryOf<Model>;
    using HostClass::HostClass;
};

class ModernLayerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        MdlCore::Initialize();
        mc::RegisterClass<Part>("Part");
        mc::RegisterClass<SubPart>("SubPart", mc::ClassOptions().Under(c_sPart).OwnedBy(c_sPart).First());
        mc::RegisterClass<Model>("Model");
        PersEnvironment::Install();  // save and the clip buffer write the product identity through it
        HUBProductIdent::SetProductIdent("Maker", "Modeller", "1.0", "1, 0");
        // Refuses a negative Integer before the edit, and answers for c_lDestroying as a rule that
        // destroyed the object.
        static mc::Rule counts = mc::OnEdit(
            c_sPart, MCCodes::pInteger,
            [](MCPropertySemantic::mode when, auto, auto, auto* context) {
                using R = MCPropertySemantic;
                const long value = mc::Incoming<long>(context).value_or(0);
                if (when == R::PreEdit)
                    return value < 0 ? R::resultRefused : R::resultContinue;
                return value == c_lDestroying ? R::resultObjectDestroyed : R::resultContinue;
            },
            MCPropertySemantic::PreEdit | MCPropertySemantic::PostEdit);
    }
    void TearDown() override {
        for (MCObject* root : m_xRoots)
            root->Expunge(true);
    }
    template <class T>
    T* Root() {  // expunged after the test
        return static_cast<T*>(m_xRoots.emplace_back(mc::Create<T>(nullptr)));
    }
    std::vector<MCObject*> m_xRoots;
};

TEST_F(ModernLayerTest, HostClassesRegisterTheirLevelsAndNamedOptions) {
    using R = MCFactoryRegistry;
    unsigned long flags = 0;
    EXPECT_TRUE(R::GetFlags(c_sSubPart, flags) && R::GetSupertype(c_sSubPart) == c_sPart &&
                R::IsValidOwner(c_sSubPart, c_sPart));
    EXPECT_EQ(flags & (R::groupFirst | R::groupSecond), R::flagFirstOn | R::flagSecondOff);
    EXPECT_FALSE(mc::RegisterClass<Part>("Part")) << "a second registration is refused";

    // Each level answers for itself and the levels above, not for the generic object; the rule on Part's
    // level reaches SubPart.
    std::string seen;
    for (MCObject* object : {static_cast<MCObject*>(Root<Part>()), static_cast<MCObject*>(Root<SubPart>())}) {
        for (short type : {c_sPart, c_sSubPart, short(MCCodes::tGenericObject)})
            seen += object->IsType(type, MCItem::rttiDerived) ? "y" : "n";
        seen += mc::Set(object, MCCodes::pInteger, -1).GetOutcome() == Outcome::refused ? "R " : "- ";
    }
    EXPECT_EQ(seen, "ynnR yynR ");
}

TEST_F(ModernLayerTest, CreateGetAndSetReportWhatHappened) {
    Part* root = Root<Part>();
    SubPart* child = mc::Create<SubPart>(root);
    ASSERT_TRUE(child && child->GetOwner(0, MCItem::rttiExact) == root);
    for (const auto& [edit, outcome] :
         {std::pair{mc::Set(child, MCCodes::pInteger, c_lDestroying), Outcome::objectDestroyed},
          {mc::Set(child, MCCodes::pName, "gear"), Outcome::applied},
          {mc::Set(child, MCCodes::pDouble, 2.5), Outcome::applied},
          {mc::Set(child, MCCodes::pDouble, 2.5), Outcome::applied},  // as it already was
          {mc::Set(child, MCCodes::pParent, root), Outcome::applied},
          {mc::Set(child, MCCodes::pName, 7), Outcome::invalid},
          {mc::Set(nullptr, MCCodes::pInteger, 1), Outcome::invalid}})
        EXPECT_EQ(edit.GetOutcome(), outcome);
    EXPECT_EQ(mc::Get<long>(child, MCCodes::pInteger), c_lDestroying);
    EXPECT_EQ(mc::Get<double>(child, MCCodes::pDouble), 2.5);
    EXPECT_EQ(mc::Get<ZVTString>(child, MCCodes::pName), ZVTString("gear"));
    EXPECT_EQ(mc::Get<MCObject*>(child, MCCodes::pParent), static_cast<MCObject*>(root));
    EXPECT_FALSE(mc::Get<long>(child, MCCodes::pName)) << "a property of another value class reads empty";
}

TEST_F(ModernLayerTest, SubscriptionsEndWithTheirHandles) {
    Part* root = Root<Part>();
    std::string heard;
    auto listen = [&heard](char who) {
        return [&heard, who](MCEvent& event) {
            heard += event.GetEventType() == MCEvent::PropertySet ? who : '.';
        };
    };
    mc::Subscription outlived = mc::Observe(mc::Create<Part>(root), listen('d'));
    mc::Subscription kept = mc::Observe(root, listen('k'));
    {
        mc::Subscription scoped = mc::Observe(root, listen('s'));
        mc::Set(root, MCCodes::pInteger, 1);
        mc::Subscription moved = std::move(scoped);
        mc::Set(root, MCCodes::pInteger, 2);
    }
    mc::Set(root, MCCodes::pInteger, 3);
    kept.Reset();
    mc::Set(root, MCCodes::pInteger, 4);
    root->Expunge(true);  // outlived's subject goes first: its handle must not touch it
    m_xRoots.clear();
    std::sort(heard.begin(), heard.end());  // delivery follows subscriber addresses
    EXPECT_EQ(heard, ".kkkss") << "the dot: outlived's subject going";
}

TEST_F(ModernLayerTest, RangesWalkOwneesTargetsAndValues) {
    Part* root = Root<Part>();
    const std::vector<MCObject*> made{mc::Create<Part>(root), mc::Create<Part>(root), mc::Create<Part>(root)};
    MCVRefAccessor targets(made[2]);
    targets.SetValue(made[0], MCPropertyAccessor::accessAdd);
    root->SetProperty(MCCodes::pReferenceList, targets, MCPropertyAccessor::accessReplace);
    MCVPropertyAccessorT<ZVTString> names(ZVTString("a"));
    names.SetValue(ZVTString("b"), MCPropertyAccessor::accessAdd);
    root->SetProperty(MCCodes::pStringList, names, MCPropertyAccessor::accessReplace);

    auto index = [&](MCObject* object) {
        return std::to_string(std::find(made.begin(), made.end(), object) - made.begin());
    };
    std::string seen;
    for (MCObject* child : mc::Ownees(root)) {
        seen += index(child);
        if (child == made[1])
            child->Expunge(true);  // the walk stands losing the current ownee
    }
    for (MCObject* target : mc::Targets(root, MCCodes::pReferenceList))
        seen += " " + index(target);
    const mc::Values<ZVTString> snapshot(root, MCCodes::pStringList);
    root->SetProperty(MCCodes::pStringList, names, MCPropertyAccessor::accessAdd);  // not in the snapshot
    for (const ZVTString& s : snapshot)
        seen += std::string(" ") + s.data();
    EXPECT_EQ(seen, "012 2 0 a b");
}

TEST_F(ModernLayerTest, RulesRunWhileTheirHandlesLive) {
    Part* root = Root<Part>();
    std::string seen;
    mc::Rule refuseNegative = mc::OnEdit(c_sPart, MCCodes::pDouble, [](auto, auto, auto, auto* context) {
        return mc::Incoming<double>(context).value_or(0) < 0 ? MCPropertySemantic::resultRefused
                                                             : MCPropertySemantic::resultContinue;
    });
    mc::Rule created = mc::OnObject(c_sSubPart, [&seen](auto...) {
        seen += "c ";
        return MCObjectSem::resultContinue;
    });
    mc::Rule moved = std::move(created);
    // Each step: an edit applied (a) or refused (r), then a creation, heard as "c ".
    const auto step = [&] {
        seen += mc::Set(root, MCCodes::pDouble, -1.0) ? "a" : "r";
        mc::Create<SubPart>(root);
    };
    step();
    refuseNegative.Reset();
    step();
    moved = mc::Rule();
    step();
    EXPECT_FALSE(created.IsActive() || moved.IsActive() || refuseNegative.IsActive());

    // A list rule reads the values and flags coming in; a list carries no single value.
    mc::Rule counts = mc::OnEdit(c_sPart, MCCodes::pIntegerList, [&seen](auto, auto, auto, auto* context) {
        const auto [values, flags] = mc::IncomingList<long>(context);
        seen += values ? std::to_string(values->Entries()) : "?";
        seen += (flags & MCPropertyAccessor::accessRemove) ? "- " : "+ ";
        seen += mc::Incoming<long>(context) ? "single " : "";
        return MCPropertySemantic::resultContinue;
    });
    MCVPropertyAccessorT<long> one(1L);
    root->SetProperty(MCCodes::pIntegerList, one, MCPropertyAccessor::accessAdd);
    root->SetProperty(MCCodes::pIntegerList, one, MCPropertyAccessor::accessRemove);
    EXPECT_EQ(seen, "rc ac a1+ 1- ") << "two creations heard, then lists";
    EXPECT_FALSE(mc::Incoming<long>(nullptr) || mc::IncomingList<long>(nullptr).first);
}

TEST_F(ModernLayerTest, NullAndEmptyInputsGiveEmptyHandlesAndRanges) {
    Part* root = Root<Part>();
    mc::Create<Part>(root);
    const auto heard = [](MCEvent&) {};
    const auto edit = [](auto...) { return MCPropertySemantic::resultContinue; };
    const auto object = [](auto...) { return MCObjectSem::resultContinue; };
    EXPECT_TRUE(mc::Observe(root, heard).IsActive());  // the one real input, for contrast
    std::ostream nowhere(nullptr);
    std::ostringstream out;
    const bool something[] = {mc::Observe(nullptr, heard).IsActive(),
                              mc::Observe(root, nullptr).IsActive(),
                              mc::OnEdit(c_sPart, MCCodes::pDouble, nullptr).IsActive(),
                              mc::OnEdit(c_sPart, MCCodes::pDouble, edit, 0).IsActive(),
                              mc::OnObject(c_sPart, nullptr).IsActive(),
                              mc::OnObject(c_sPart, object, 0).IsActive(),
                              mc::Ownees(nullptr).begin() != mc::Ownees(nullptr).end(),
                              mc::Targets(nullptr, MCCodes::pReferenceList).size() != 0,
                              mc::Values<long>(nullptr, MCCodes::pIntegerList).size() != 0,
                              static_cast<bool>(mc::Save(nullptr, out)) || !out.str().empty(),
                              static_cast<bool>(mc::Save(Root<Model>(), nowhere))};
    for (size_t i = 0; i < std::size(something); ++i)
        EXPECT_FALSE(something[i]) << "input " << i;
}

TEST_F(ModernLayerTest, PropertiesWalkLive) {
    Part* root = Root<Part>();
    mc::Set(root, MCCodes::pInteger, 1);
    mc::Set(root, MCCodes::pName, "n");
    mc::Set(root, MCCodes::pDouble, 2.0);
    std::string seen;
    for (MCProperty* property : mc::Properties(root)) {
        seen += std::to_string(property->GetType()) + " ";
        if (property->GetType() == MCCodes::pInteger) {  // the walk stands nulling the current one ...
            MCSPropertyAccessorT<long> nothing;
            root->NullProperty(MCCodes::pInteger, nothing);
            mc::Set(root, MCCodes::pString, "s");  // ... and making one, which takes the freed slot behind
        }
    }
    seen += "|";
    for (const MCObject* object : {static_cast<MCObject*>(root), static_cast<MCObject*>(nullptr)})
        for (MCProperty* property : mc::Properties(object))
            seen += std::to_string(property->GetType()) + " ";
    EXPECT_EQ(seen, "132 87 147 1036 |132 91 147 1036 ");
}

TEST_F(ModernLayerTest, SaveAndRestoreReportWhatHappened) {
    Model* model = Root<Model>();
    mc::Set(model, MCCodes::pName, "m");
    MCObject* part = mc::Create<Part>(model);
    mc::Set(part, MCCodes::pInteger, 5);
    ASSERT_LT(MCFactoryRegistry::RegisterUDP("Remark", MCCodes::pString, model, false), 0);
    std::ostringstream out, nowhere;
    const mc::SaveResult saved = mc::Save(model, out);
    ASSERT_TRUE(saved) << saved.message;
    const std::string bytes = out.str();
    EXPECT_FALSE(mc::Save(Root<Part>(), nowhere)) << "no persistence root above";

    // Each case: outcome, whether a root came back (and its name and part's value), whether an exception
    // ended it. Whatever a restore made goes with its root or as a stray.
    for (const auto& [input, expected] :
         {std::pair<std::string, const char*>{bytes, "0 m5 ok"},
          {bytes.substr(0, bytes.size() - 6), "0 m0 ok"},  // the part is cut off
          {bytes.substr(0, 20), "3 - threw"},
          {"garbage in, garbage out", "5 - ok"},
          {"", "3 - threw"}}) {
        SCOPED_TRACE(input.size());
        std::istringstream in(input);
        mc::RestoreResult restored = mc::Restore(in);
        MCObject* root = restored.root;
        const std::string found =
            root ? mc::Get<ZVTString>(root, MCCodes::pName).value_or("?").str() +
                       std::to_string(mc::Get<long>(root->GetFirstOwnee(), MCCodes::pInteger).value_or(0))
                 : "-";
        EXPECT_EQ(
            std::to_string(restored.outcome) + " " + found + (restored.message.empty() ? " ok" : " threw"),
            expected);
        if (root)
            root->Expunge(true);
        restored.ExpungeStrays();
        for (const auto& [object, id] : restored.Created())
            EXPECT_NE(MCObject::ResolveId(id), object) << "left alive";
    }

    // A host stream maps the stored ids to the restored objects.
    std::istringstream in(bytes);
    MCStream stream(in, ZVTStream::binary);
    mc::RestoreResult restored = mc::Restore(stream);
    ASSERT_TRUE(restored) << restored.message;
    EXPECT_EQ(stream.GetIdSpace().ResolveId(part->GetId()), restored.root->GetFirstOwnee());
    EXPECT_EQ(restored.header.GetProductCode(), ZVTString("Modeller"));

    // A log sees what is made while it lives; its strays go, the kept one and ownees stay.
    mc::CreationLog log;
    Part* kept = mc::Create<Part>(nullptr);
    mc::Create<Part>(kept);
    mc::Create<Part>(nullptr);
    std::string seen = std::to_string(log.Created().size()) + " ";
    seen += std::to_string(log.ExpungeStrays(kept)) + " ";
    seen += std::to_string(kept->GetOwneeCount()) + " " + std::to_string(log.Created().size());
    kept->Expunge(true);
    // The restored root holds the model's user-defined property and leaves it as it goes: a later root at
    // its address must not inherit it.
    const auto udps = [](MCObject* holder) {
        ZVTOrderedVectorT<short> held;
        MCFactoryRegistry::GetPropertyTypes(held, MCFactoryRegistry::selectUserProperties, holder);
        return std::to_string(held.Length());
    };
    MCObject* restoredRoot = restored.root;
    const long rootId = restoredRoot->GetId();
    seen += " " + udps(restoredRoot);
    seen += " " + std::to_string(restored.ExpungeAll());
    seen += " " + udps(restoredRoot);
    EXPECT_EQ(seen, "3 1 1 0 1 1 0");
    EXPECT_EQ(restored.root, nullptr) << "the root stays";
    EXPECT_EQ(MCObject::ResolveId(rootId), nullptr);
}

TEST_F(ModernLayerTest, CopyAndPasteGoThroughByteBuffers) {
    Model* model = Root<Model>();
    Part* part = mc::Create<Part>(model);
    mc::Set(mc::Create<SubPart>(part), MCCodes::pInteger, 7);
    const std::vector<char> buffer = mc::Copy({part->GetFirstOwnee()}, *model);
    ASSERT_FALSE(buffer.empty());

    auto paste = [](const std::vector<char>& bytes, MCObject& target) {  // the values of what landed
        std::string seen;
        for (MCObject* object : mc::Paste(bytes, target))
            seen += std::to_string(mc::Get<long>(object, MCCodes::pInteger).value_or(-1)) + " ";
        return seen + "| ";
    };
    std::string seen = paste(buffer, *part);
    seen += paste(buffer, *part);  // the bytes paste any number of times
    seen += paste({}, *part);
    EXPECT_EQ(seen + std::to_string(part->GetOwneeCount()), "7 | 7 | | 3");
    EXPECT_TRUE(mc::Copy({}, *model).empty());
    Part* loose = Root<Part>();
    EXPECT_THROW(mc::Copy({loose}, *loose), EXUnexpected) << "no persistence root above";
}

}  // namespace

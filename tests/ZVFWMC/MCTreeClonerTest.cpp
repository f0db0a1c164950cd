// Cloning a subtree: shape and order of the copy, CloneId, references moved onto the clones or kept, the
// rules and events a copy fires, a core value and a host subclass's copied alike, clones their own rules
// destroy, and a deep chain on a small stack.

#include <functional>
#include <map>
#include <string>
#include <vector>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include "support/RuleTestSupport.h"

namespace {

constexpr short c_sRef = 7821;        // a Reference
constexpr short c_sRefs = 7822;       // a ReferenceList
constexpr short c_sHostWidth = 7823;  // a HostInteger
constexpr short c_sHostRef = 7824;    // a HostRef

// A host's subclass of the core Integer that makes its accessors itself, and counts them.
class HostInteger : public MCSPropertyT<long> {
public:
    HostInteger(short type, MCObject* owner) : MCSPropertyT<long>(type, owner) {}
    MCPropertyAccessor* CreateAccessor() const override {
        ++c_nMade;
        return MCSPropertyT<long>::CreateAccessor();
    }
    static inline int c_nMade = 0;
};

// A host's subclass of the core reference, whose rebinding may first run a hook on its holder.
class HostRef : public MCSRef {
public:
    HostRef(short type, MCObject* owner) : MCSRef(type, owner) {}
    void Rebind(MCIdSpace& space, MCObject& owner) override {
        if (c_xHook)
            c_xHook(owner);
        MCSRef::Rebind(space, owner);
    }
    static inline std::function<void(MCObject&)> c_xHook;
};

class CloneTest : public RuleTest {
protected:
    void SetUp() override {
        RuleTest::SetUp();
        MCFactoryRegistry::RegisterAliasProperty(c_sRef, "CloneTestRef", MCCodes::pReference, true, false,
                                                 false, false);
        MCFactoryRegistry::RegisterAliasProperty(c_sRefs, "CloneTestRefs", MCCodes::pReferenceList, true,
                                                 false, false, false);
        static const bool c_bHosts =
            (new MCPropertyFactoryT<HostInteger>(c_sHostWidth, "CloneTestHostWidth", true, false, 0))
                ->IsRegistered() &&
            (new MCPropertyFactoryT<HostRef>(c_sHostRef, "CloneTestHostRef", true, false, 0))->IsRegistered();
        ASSERT_TRUE(c_bHosts);
    }
    void TearDown() override {
        HostRef::c_xHook = nullptr;
        RuleTest::TearDown();
    }
    MCObject* Named(const char* name, MCObject* owner = nullptr, short type = MCGenericObject::c_sType) {
        MCObject* object = Make(owner, type);
        m_xNames[object] = name;
        return object;
    }
    MCObject* Clone(MCObject* start, ZVTFilter<MCObject*>* filter = nullptr) {
        MCObject* clone = start->CloneTree(filter);
        if (clone)
            m_xRoots.emplace_back(clone, clone->GetId());  // expunged at the end
        return clone;
    }
    static MCObject* Source(const MCObject* clone) {
        MCSPropertyRawAccessorT<long> cloneId;
        return clone->GetProperty(MCCodes::pCloneId, cloneId) ? MCObject::ResolveId(cloneId.GetValue())
                                                              : nullptr;
    }
    /// A clone is named by its source with a prime ("b'"), with "!" when its id is not fresh and its own or
    /// its type is not its source's.
    std::string Name(const MCObject* object) const {
        if (!object || m_xNames.count(object))
            return object ? m_xNames.at(object) : "null";
        const MCObject* source = Source(object);
        if (!source)
            return "?";
        const bool fresh =
            source->GetId() != object->GetId() && MCObject::ResolveId(object->GetId()) == object;
        return Name(source) + "'" + (fresh && source->GetType() == object->GetType() ? "" : "!");
    }
    /// "name(ownee ownee(...))" in list order, then the references: "name>ref[refs]", where ref is the
    /// core's single reference or else the host's.
    std::string Tree(const MCObject* object) const {
        std::string text = Name(object);
        MCSRefRawAccessor ref;
        MCVRefRawAccessor refs;
        if (object && (object->GetProperty(c_sRef, ref) || object->GetProperty(c_sHostRef, ref)))
            text += ">" + Name(ref.GetValue());
        for (size_t i = 0; object && object->GetProperty(c_sRefs, refs) && i < refs.GetList()->Entries(); ++i)
            text += (i ? " " : "[") + Name(refs.GetList()->At(i)) +
                    (i + 1 < refs.GetList()->Entries() ? "" : "]");
        for (MCObject* ownee = object ? object->GetFirstOwnee() : nullptr; ownee;
             ownee = ownee->GetNextSibling())
            text += (ownee == object->GetFirstOwnee() ? "(" : " ") + Tree(ownee) +
                    (ownee->GetNextSibling() ? "" : ")");
        return text;
    }
    /// The first target goes to the single reference, the others, if any, to the list.
    static void Refer(MCObject* holder, std::vector<MCObject*> targets) {
        MCSRefAccessor ref(targets.front());
        holder->SetProperty(c_sRef, ref, MCPropertyAccessor::accessAdd);
        ZVTSList<MCObject*> list;
        for (size_t i = 1; i < targets.size(); ++i)
            list.Append(targets[i]);
        MCVRefAccessor refs(&list);
        if (targets.size() > 1)
            holder->SetProperty(c_sRefs, refs, MCPropertyAccessor::accessReplace);
    }

    std::map<const MCObject*, std::string> m_xNames;
};

// The copy is a new root with its ownees reversed, and CloneId names the immediate source. References
// inside the subtree move onto the clones with their subscriptions; those leaving it stay.
TEST_F(CloneTest, TheCopyIsANewRootWithOwneesReversedAndReferencesMovedOntoTheClones) {
    MCObject* outside = Named("O");
    MCObject* start = Named("S", Named("P"));
    MCObject* x = Named("x", start);
    MCObject* y = Named("y", Named("b", start, TestNode::c_sType));
    Named("c", start);
    Refer(start, {x});
    Refer(x, {y, y, outside, start, outside});
    Refer(y, {outside});
    MCObject* clone = Clone(start);
    EXPECT_EQ(Tree(clone), "S'>x'(c' b'(y'>O) x'>y'[y' O S' O])");
    EXPECT_EQ(clone->GetOwner(0, MCItem::rttiDerived), nullptr);
    EXPECT_EQ(Tree(Clone(clone)), "S''>x''(x''>y''[y'' O S'' O] b''(y''>O) c'')");
    EXPECT_EQ(Tree(start), "S>x(x>y[y O S O] b(y>O) c)");
    struct : ZVTFilter<MCObject*> {
        ZVTBoolean Test(MCObject*&) override { return false; }
    } refuseAll;
    EXPECT_EQ(Clone(start, &refuseAll), nullptr);

    // Each clone hears of the end of what it now refers to, and no longer of what its source refers to.
    MCObject* x1 = clone->GetFirstOwnee()->GetNextSibling()->GetNextSibling();
    outside->Expunge(true);
    clone->GetFirstOwnee()->GetNextSibling()->GetFirstOwnee()->Expunge(true);
    EXPECT_EQ(Tree(x1), "x'>null[S']");
}

TEST_F(CloneTest, CopiesRunTheEditRulesAndEventsButNoCreationRules) {
    MCObject* source = Make(nullptr, Shape::c_sType);
    SetLong(source, Shape::c_sWidth, 3);
    MCSPropertyAccessorT<ZVTString> label(ZVTString("box"));
    source->SetProperty(Shape::c_sLabel, label, MCPropertyAccessor::accessAdd);
    constexpr unsigned long c_nEdit = MCPropertySemantic::PreEdit | MCPropertySemantic::PostEdit;
    ObjectRule created("created", MCObjectSem::PostCreation);
    PropertyRule width("width", c_nEdit), cloneId("cloneid", c_nEdit),
        refused("label", MCPropertySemantic::PreEdit, MCPropertySemantic::resultRefused);
    AddRule(Shape::c_sType, created);
    AddRule(Shape::c_sType, Shape::c_sWidth, width);
    AddRule(Shape::c_sType, Shape::c_sLabel, refused);
    AddRule(Shape::c_sType, MCCodes::pCloneId, cloneId);
    struct Hook : MCCreationHook {
        explicit Hook(EventLog* log) : m_pxLog(log) {}
        void ItemCreated(MCObject* object) override {
            object->AddSubscriber(m_pxLog, MCEvent::subscriberObserver);
        }
        EventLog* m_pxLog;
    } hook(&m_xLog);
    MCFactoryRegistry::HookCreateItem(hook, true);
    TakeLog();

    MCObject* clone = Clone(source);
    // A nulled property is not carried over: TestNode's embedded one stays as its constructor made it.
    MCObject* node = Clone(MakeNode());
    MCFactoryRegistry::HookCreateItem(hook, false);
    const std::string id = std::to_string(clone->GetId());
    EXPECT_EQ(TakeLog(), "width:1 width:2 label:1 cloneid:1 cloneid:2");
    EXPECT_EQ(m_xLog.Take(), "PropertySet(" + id + ",7711,0) PropertySet(" + id + ",582,0) PropertySet(" +
                                 std::to_string(node->GetId()) + ",582,0)");
    // The label was refused, and the copy went on.
    EXPECT_EQ(GetLong(clone, Shape::c_sWidth) + (clone->FindProperty(Shape::c_sLabel, false) ? " label" : ""),
              "3");
}

// The core's classes are copied through an accessor on the stack, a host's subclass through the one it
// makes; the rules see the same accessor, value and flags either way.
TEST_F(CloneTest, ACoreValueAndAHostSubclassValueAreCopiedAlike) {
    std::string traces[2];
    const short types[] = {Shape::c_sWidth, c_sHostWidth};
    for (int i = 0; i < 2; ++i) {
        SCOPED_TRACE(types[i]);
        MCObject* source = Make(nullptr, Shape::c_sType);
        SetLong(source, types[i], 3, MCPropertyAccessor::accessAdd, false);
        source->SetPropertyFlag(const_cast<MCProperty*>(source->FindProperty(types[i], false)),
                                MCItem::itemTemp, true);
        PropertyRule rule("edit", MCPropertySemantic::PreEdit | MCPropertySemantic::PostEdit);
        rule.m_xAct = [](MCPropertySemantic::mode, MCObject*, MCProperty*,
                         MCPropertySemanticContext* context) {
            const MCActiveAccessor* active = context ? context->GetActiveAccessor() : nullptr;
            auto* accessor =
                active ? dynamic_cast<MCSPropertyAccessorT<long>*>(active->m_pxAccessor) : nullptr;
            Record(accessor
                       ? std::to_string(accessor->GetValue()) + "/" + std::to_string(accessor->GetFlags()) +
                             "/" + std::to_string(active->m_lFlags)
                       : "other",
                   0);
            return MCPropertySemantic::resultContinue;
        };
        AddRule(Shape::c_sType, types[i], rule);
        TakeLog();
        const int made = HostInteger::c_nMade;
        MCObject* clone = Clone(source);
        traces[i] = TakeLog() + " " + GetLong(clone, types[i]) + " " +
                    std::to_string(clone->FindProperty(types[i], false)->GetFlags()) + " made " +
                    std::to_string(HostInteger::c_nMade - made - i);
    }
    EXPECT_EQ(traces[0], "edit:1 3/1/10:0 edit:2 3/1/10:0 3 1 made 0");
    EXPECT_EQ(traces[1], traces[0]);
}

TEST_F(CloneTest, AClonesOwnRulesThatDestroyItLeaveItOutWithItsSubtree) {
    MCObject* start = Named("S", nullptr, Shape::c_sType);
    MCObject* m = Named("m", start, Shape::c_sType);
    Named("k", m, Shape::c_sType);
    Named("n", start, Shape::c_sType);
    PropertyRule destroyer("destroy", MCPropertySemantic::PostEdit);
    destroyer.m_xAct = [](MCPropertySemantic::mode, MCObject* object, MCProperty*,
                          MCPropertySemanticContext*) {
        object->Expunge(true);
        return MCPropertySemantic::resultObjectDestroyed;
    };
    AddRule(Shape::c_sType, Shape::c_sWidth, destroyer);
    SetLong(m, Shape::c_sWidth, 1, MCPropertyAccessor::accessAdd, false);  // raw: no rule on the source
    EXPECT_EQ(Tree(Clone(start)), "S'(n')");
    SetLong(start, Shape::c_sWidth, 1, MCPropertyAccessor::accessAdd, false);
    EXPECT_EQ(Clone(start), nullptr);
}

// Many clones, so that rebinding runs over several batches: a reference of the core's class and one of a
// host's subclass end up alike, also when a host's rebinding re-points a clone not yet rebound, and each
// clone hears of the end of its new target, not of its source's.
TEST_F(CloneTest, AWideTreeIsReboundAlikeByTheCoresReferenceAndAHosts) {
    constexpr int c_nNodes = 60;
    const auto targetOf = [](int i) { return i % 5 == 0 ? -1 : (i * 7 + 3) % c_nNodes; };  // -1: outside
    const struct {
        short m_sType;
        bool m_bHook;
    } cases[] = {{c_sRef, false}, {c_sHostRef, false}, {c_sRef, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.m_sType) + (c.m_bHook ? " hook" : ""));
        MCObject* outside = Named("O");
        MCObject* start = Named("S");
        std::vector<MCObject*> nodes;
        for (int i = 0; i < c_nNodes; ++i)
            nodes.push_back(Named(("n" + std::to_string(i)).c_str(), start));
        for (int i = 0; i < c_nNodes; ++i) {
            MCSRefAccessor ref(targetOf(i) < 0 ? outside : nodes[static_cast<size_t>(targetOf(i))]);
            nodes[static_cast<size_t>(i)]->SetProperty(c.m_sType, ref, MCPropertyAccessor::accessAdd);
        }
        // The root clone is rebound first; its hook moves n3's clone, a few clones on, onto n20.
        MCSRefAccessor root(nodes[1]);
        start->SetProperty(c_sHostRef, root, MCPropertyAccessor::accessAdd);
        HostRef::c_xHook = [&](MCObject& holder) {
            for (MCObject* clone = holder.GetFirstOwnee(); c.m_bHook && clone;
                 clone = clone->GetNextSibling())
                if (Source(clone) == nodes[3]) {
                    MCSRefRawAccessor moved(nodes[20]);
                    clone->SetProperty(c.m_sType, moved, MCPropertyAccessor::accessReplace);
                }
        };
        MCObject* clone = Clone(start);
        HostRef::c_xHook = nullptr;
        // Clones in list order, newest first; `gone`: the last node's clone and the outside target are gone.
        const auto expected = [&](bool gone) {
            std::string text = "S'>n1'(";
            for (int i = c_nNodes - 1 - gone; i >= 0; --i) {
                const int target = c.m_bHook && i == 3 ? 20 : targetOf(i);
                const bool cleared = gone && (target < 0 || target == c_nNodes - 1);
                text += "n" + std::to_string(i) + "'>" +
                        (cleared      ? "null"
                         : target < 0 ? "O"
                                      : "n" + std::to_string(target) + "'") +
                        (i ? " " : ")");
            }
            return text;
        };
        EXPECT_EQ(Tree(clone), expected(false));
        outside->Expunge(true);
        clone->GetFirstOwnee()->Expunge(true);  // the last one's clone
        EXPECT_EQ(Tree(clone), expected(true));
        m_xNames.clear();
    }
}

TEST_F(CloneTest, ADeepChainIsClonedOnASmallStack) {
    // Crates keep their ownees' edits here rather than pass them up, so that an edit in a long chain of
    // them costs one delivery, not one per level; creation in the chain fires nothing.
    static struct Keep : MCNotification {
        result Notify(MCObject*, MCEvent&) override { return resultHandled; }
    } keep;
    MCNotificationDirectory::GetInstance()->RegisterNotification(Crate::c_sType, 0, MCEvent::PropertySet,
                                                                 &keep);
    MCObject* leaf = MakeChain(nullptr, 100000, Crate::c_sType);
    MCObject* root = leaf;
    while (MCObject* owner = root->GetOwner(0, MCItem::rttiDerived))
        root = owner;
    Refer(leaf, {root});
    MCObject* clone = nullptr;
    ASSERT_TRUE(RunOnStack(256 * 1024, [&] { clone = root->CloneTree(nullptr); }));
    int links = 1;
    MCObject* cloneLeaf = clone;
    for (; cloneLeaf->GetFirstOwnee(); ++links)
        cloneLeaf = cloneLeaf->GetFirstOwnee();
    MCSRefRawAccessor ref;
    EXPECT_EQ(links, 100000);
    EXPECT_TRUE(Source(cloneLeaf) == leaf && cloneLeaf->GetProperty(c_sRef, ref) && ref.GetValue() == clone);
    // Deaths climb the owners one call per level too, so both chains go quietly from the leaf up.
    for (MCObject* link : {cloneLeaf, leaf})
        while (link) {
            MCObject* owner = link->GetOwner(0, MCItem::rttiDerived);
            link->SetFlag(MCItem::itemTreeExpunge, true);
            link->Expunge(true);
            link = owner;
        }
}

}  // namespace

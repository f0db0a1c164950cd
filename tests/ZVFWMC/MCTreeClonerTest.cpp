// Cloning a subtree: shape and order of the copy, CloneId, references moved onto the clones or kept by
// the core's reference class and a host's, the rules and events a copy fires, a core value and a host
// subclass's copied alike, clones their own rules destroy, and a deep chain on a small stack.

#include <tuple>

#include "support/RuleTestSupport.h"

namespace {

using R = MCFactoryRegistry;
constexpr short c_sRef = 7821;        // a Reference
constexpr short c_sRefs = 7822;       // a ReferenceList
constexpr short c_sHostWidth = 7823;  // a HostInteger
constexpr short c_sHostRef = 7824;    // a HostRef

// A host's subclass of the core Integer that makes its accessors itself, and counts them.
struct HostInteger : MCSPropertyT<long> {
    HostInteger(short type, MCObject* owner) : MCSPropertyT<long>(type, owner) {}
    MCPropertyAccessor* CreateAccessor() const override {
        ++c_nMade;
        return MCSPropertyT<long>::CreateAccessor();
    }
    static inline int c_nMade = 0;
};

// A host's subclass of the core reference, whose rebinding may first run a hook on its holder.
struct HostRef : MCSRef {
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
        R::RegisterAliasProperty(c_sRef, "CloneRef", MCCodes::pReference, true, false, false, false);
        R::RegisterAliasProperty(c_sRefs, "CloneRefs", MCCodes::pReferenceList, true, false, false, false);
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
    /// A clone is named by its source with a prime ("b'"), with "!" when it shares its source's id or not
    /// its type.
    static std::string Name(const MCObject* object) {
        const MCObject* source = object ? Source(object) : nullptr;
        if (!source)
            return object ? NameOf(object) : "null";
        return Name(source) +
               (source->GetId() != object->GetId() && source->GetType() == object->GetType() ? "'" : "'!");
    }
    /// "name>ref[refs](ownees)" with the ownees in list order; ref is the core's single reference or else
    /// the host's.
    static std::string Tree(const MCObject* object) {
        if (!object)
            return "null";
        std::string text = Name(object), kids;
        MCSRefRawAccessor ref;
        MCVRefRawAccessor refs;
        if (object->GetProperty(c_sRef, ref) || object->GetProperty(c_sHostRef, ref))
            text += ">" + Name(ref.GetValue());
        for (size_t i = 0; object->GetProperty(c_sRefs, refs) && i < refs.GetList()->Entries(); ++i)
            text += (i ? " " : "[") + Name(refs.GetList()->At(i)) +
                    (i + 1 < refs.GetList()->Entries() ? "" : "]");
        for (MCObject* ownee = object->GetFirstOwnee(); ownee; ownee = ownee->GetNextSibling())
            kids += (kids.empty() ? "(" : " ") + Tree(ownee);
        return text + kids + (kids.empty() ? "" : ")");
    }
};

// The copy is a new root with its ownees reversed, and CloneId names the immediate source. References
// inside the subtree move onto the clones with their subscriptions; those leaving it stay.
TEST_F(CloneTest, TheCopyIsANewRootWithOwneesReversedAndReferencesMovedOntoTheClones) {
    MCObject* outside = Named("O");
    MCObject* start = Named("S", Named("P"));
    MCObject* x = Named("x", start);
    // b is a TestNode: its nulled property is not copied.
    MCObject* y = Named("y", Named("b", start, TestNode::c_sType));
    Named("c", start);
    Link(start, c_sRef, x);
    Link(x, c_sRef, y);
    for (MCObject* target : {y, outside, start, outside})
        Link(x, c_sRefs, target);
    Link(y, c_sRef, outside);
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

// A copy sets each value through the edit rules, CloneId last; a refused value is left out and the copy
// goes on, and only what was set is announced. The core's classes are copied through an accessor on the
// stack, a host's subclass through the one it makes: the rules see the same accessor, value and flags.
TEST_F(CloneTest, ACoreValueAndAHostSubclassValueAreCopiedAlike) {
    const unsigned long edit = MCPropertySemantic::PreEdit | MCPropertySemantic::PostEdit;
    PropertyRule rule("edit", edit), cloneId("cloneid", edit),
        refused("integer", MCPropertySemantic::PreEdit, MCPropertySemantic::resultRefused);
    rule.m_xAct = [](auto, MCObject*, auto, MCPropertySemanticContext* context) {
        const MCActiveAccessor* active = context ? context->GetActiveAccessor() : nullptr;
        auto* a = active ? dynamic_cast<MCSPropertyAccessorT<long>*>(active->m_pxAccessor) : nullptr;
        Record(a ? std::to_string(a->GetValue()) + "/" + std::to_string(a->GetFlags()) + "/" +
                       std::to_string(active->m_lFlags)
                 : "other",
               0);
        return MCPropertySemantic::resultContinue;
    };
    AddRule(Shape::c_sType, MCCodes::pInteger, refused);
    AddRule(Shape::c_sType, MCCodes::pCloneId, cloneId);
    static EventLog heard;  // subscribed to each object as it is made
    struct : MCCreationHook {
        void ItemCreated(MCObject* object) override {
            object->AddSubscriber(&heard, MCEvent::subscriberObserver);
        }
    } hook;
    // The value's type and how many accessors the host's class makes for the copy.
    for (const auto& [type, made] : {std::pair<short, int>{Shape::c_sWidth, 0}, {c_sHostWidth, 1}}) {
        SCOPED_TRACE(type);
        MCObject* source = Make(nullptr, Shape::c_sType);
        SetLong(source, type, 3, MCPropertyAccessor::accessAdd, false);
        source->SetPropertyFlag(const_cast<MCProperty*>(source->FindProperty(type, false)), MCItem::itemTemp,
                                true);
        // Raw: the rules are the copy's.
        SetLong(source, MCCodes::pInteger, 4, MCPropertyAccessor::accessAdd, false);
        AddRule(Shape::c_sType, type, rule);
        TakeLog();
        const int before = HostInteger::c_nMade;
        R::HookCreateItem(hook, true);
        MCObject* clone = Clone(source);
        R::HookCreateItem(hook, false);
        const std::string set = "PropertySet(" + std::to_string(clone->GetId()) + ",";
        EXPECT_EQ(TakeLog() + " | " + heard.Take(),
                  "edit:1 3/1/10:0 edit:2 3/1/10:0 integer:1 cloneid:1 cloneid:2 | " + set +
                      std::to_string(type) + ",0) " + set + std::to_string(MCCodes::pCloneId) + ",0)");
        EXPECT_EQ(GetLong(clone, type) + " " + GetLong(clone, MCCodes::pInteger) + " " +
                      std::to_string(clone->FindProperty(type, false)->GetFlags()) + " made " +
                      std::to_string(HostInteger::c_nMade - before),
                  "3 - 1 made " + std::to_string(made));
    }
}

// A clone's rule may expunge the clone itself, an earlier clone (the walk takes the youngest ownee
// first) or its owner, up to the root: whatever went is left out with its subtree, the rest is copied and
// rebound, and a root that went gives null.
TEST_F(CloneTest, ClonesThatTheirRulesExpungeAreLeftOutWithTheirSubtrees) {
    enum Victim { itself, firstFired, owner };
    // The sources whose width the copy sets, so the rule fires, which object the rule expunges, and the
    // copy with the log.
    const std::tuple<const char*, std::vector<const char*>, Victim, const char*> rows[] = {
        {"itself", {"m"}, itself, "S'(n') destroy:2"},
        {"itself, the root", {"S"}, itself, "null destroy:2"},
        {"an earlier sibling", {"m", "n"}, firstFired, "S'(m'(j' k')) destroy:2 destroy:2"},
        {"its owner, with ownees still to come", {"j"}, owner, "S'(n') destroy:2"},
        {"its owner, the root", {"m"}, owner, "null destroy:2"},
    };
    static Victim s_victim;
    static MCObject* s_first;
    PropertyRule destroyer("destroy", MCPropertySemantic::PostEdit);
    destroyer.m_xAct = [](auto, MCObject* object, auto, auto) {
        if (s_victim == firstFired && !s_first) {
            s_first = object;
            return MCPropertySemantic::resultContinue;
        }
        MCObject* victim = s_victim == owner        ? object->GetOwner(0, MCItem::rttiDerived)
                           : s_victim == firstFired ? s_first
                                                    : object;
        const long id = object->GetId();
        victim->Expunge(true);
        return MCObject::ResolveId(id) == object ? MCPropertySemantic::resultContinue
                                                 : MCPropertySemantic::resultObjectDestroyed;
    };
    AddRule(Shape::c_sType, Shape::c_sWidth, destroyer);
    ObjectRule created("created", MCObjectSem::PostCreation);  // a copy runs the edit rules, no creation rule
    AddRule(Shape::c_sType, created);
    for (const auto& [name, widthOn, victim, expected] : rows) {
        SCOPED_TRACE(name);
        std::map<std::string, MCObject*> sources{{"-", nullptr}};
        const std::pair<const char*, const char*> owned[] = {
            {"S", "-"}, {"m", "S"}, {"k", "m"}, {"j", "m"}, {"n", "S"}};
        for (const auto& [at, owner] : owned)
            sources[at] = Named(at, sources[owner], Shape::c_sType);
        for (const char* at : widthOn)  // raw: no rule on the source
            SetLong(sources[at], Shape::c_sWidth, 1, MCPropertyAccessor::accessAdd, false);
        s_victim = victim;
        s_first = nullptr;
        TakeLog();
        const std::string tree = Tree(Clone(sources["S"]));
        EXPECT_EQ(tree + " " + TakeLog(), expected);
    }
}

// Many clones, so that rebinding runs over several batches: a reference of the core's class and one of a
// host's subclass end up alike, also when a host's rebinding re-points a clone not yet rebound, and each
// clone hears of the end of its new target, not of its source's.
TEST_F(CloneTest, AWideTreeIsReboundAlikeByTheCoresReferenceAndAHosts) {
    constexpr int c_nNodes = 60;
    const auto targetOf = [](int i) { return i % 5 == 0 ? -1 : (i * 7 + 3) % c_nNodes; };  // -1: outside
    // The reference's type, and whether the root's hook re-points a clone.
    const std::pair<short, bool> cases[] = {{c_sRef, false}, {c_sHostRef, false}, {c_sRef, true}};
    for (const auto& [type, hook] : cases) {
        SCOPED_TRACE(std::to_string(type) + (hook ? " hook" : ""));
        MCObject* outside = Named("O");
        MCObject* start = Named("S");
        std::vector<MCObject*> nodes;
        for (int i = 0; i < c_nNodes; ++i)
            nodes.push_back(Named(("n" + std::to_string(i)).c_str(), start));
        for (int i = 0; i < c_nNodes; ++i)
            Link(nodes[static_cast<size_t>(i)], type,
                 targetOf(i) < 0 ? outside : nodes[static_cast<size_t>(targetOf(i))]);
        // The root clone is rebound first; its hook moves n3's clone, a few clones on, onto n20.
        Link(start, c_sHostRef, nodes[1]);
        HostRef::c_xHook = [&](MCObject& holder) {
            for (MCObject* clone = holder.GetFirstOwnee(); hook && clone; clone = clone->GetNextSibling())
                if (Source(clone) == nodes[3]) {
                    MCSRefRawAccessor moved(nodes[20]);
                    clone->SetProperty(type, moved, MCPropertyAccessor::accessReplace);
                }
        };
        MCObject* clone = Clone(start);
        // Clones in list order, newest first; `gone`: the last node's clone and the outside target are gone.
        const auto expected = [&](bool gone) {
            std::string text = "S'>n1'(";
            for (int i = c_nNodes - 1 - gone; i >= 0; --i) {
                const int target = hook && i == 3 ? 20 : targetOf(i);
                text += "n" + std::to_string(i) + "'>" +
                        (gone && (target < 0 || target == c_nNodes - 1) ? "null"
                         : target < 0                                   ? "O"
                                      : "n" + std::to_string(target) + "'") +
                        (i ? " " : ")");
            }
            return text;
        };
        EXPECT_EQ(Tree(clone), expected(false));
        outside->Expunge(true);
        clone->GetFirstOwnee()->Expunge(true);  // the last one's clone
        EXPECT_EQ(Tree(clone), expected(true));
    }
}

TEST_F(CloneTest, ADeepChainIsClonedOnASmallStack) {
    // Crates keep their ownees' edits here rather than pass them up, so that an edit in a long chain of
    // them costs one delivery, not one per level.
    static struct Keep : MCNotification {
        result Notify(MCObject*, MCEvent&) override { return resultHandled; }
    } keep;
    MCNotificationDirectory::GetInstance()->RegisterNotification(Crate::c_sType, 0, MCEvent::PropertySet,
                                                                 &keep);
    MCObject* root = Make(nullptr, Crate::c_sType);
    MCObject* leaf = MakeChain(root, 99999, Crate::c_sType);
    Link(leaf, c_sRef, root);
    MCObject* clone = nullptr;
    ASSERT_TRUE(RunOnStack(256 * 1024, [&] { clone = Clone(root); }));
    MCObject* cloneLeaf = clone;
    while (cloneLeaf->GetFirstOwnee())
        cloneLeaf = cloneLeaf->GetFirstOwnee();
    MCSRefRawAccessor ref;
    EXPECT_TRUE(Source(cloneLeaf) == leaf && cloneLeaf->GetProperty(c_sRef, ref) && ref.GetValue() == clone);
}

}  // namespace

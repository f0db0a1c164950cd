#ifndef RELIABILITYMODEL_H
#define RELIABILITYMODEL_H

// The model the reliability tests break: a persistence root with a user-defined property, a name space
// and a small tree of host nodes that refer to each other, and the calls that save, restore, copy and
// paste it.

#include "ModelCore/ModelCoreModern.h"
#include "support/FaultTestSupport.h"
#include "support/PersTestSupport.h"

/// A host node: a Count, a Link that a copy follows and a Links list that it drops.
class RelNode : public mc::HostClass<7901> {
public:
    static constexpr short c_sCount = 7911;
    static constexpr short c_sLink = 7912;
    static constexpr short c_sLinks = 7913;

    static void Register() {
        using R = MCFactoryRegistry;
        if (R::IsRegistered(c_sType, nullptr))
            return;
        R::RegisterAliasProperty(c_sCount, "Count", MCCodes::pInteger, true, false, false, false);
        R::RegisterAliasProperty(c_sLink, "Link", MCCodes::pReference, false, false, false, false);
        R::RegisterAliasProperty(c_sLinks, "Links", MCCodes::pReferenceList, false, false, false, false);
        mc::RegisterClass<RelNode>("RelNode",
                                   mc::ClassOptions().OwnedBy(PersRoot::c_sType).Expecting(10).First());
        R::AddOwnerType(c_sType, c_sType);
        R::AddPropertyUsage(c_sType, c_sLink, R::clipFollow);
        R::AddPropertyUsage(c_sType, c_sLinks, 0);
        R::AddPropertyUsage(c_sType, MCCodes::pParent, 0);
    }

private:
    friend mc::FactoryOf<RelNode>;
    using HostClass::HostClass;
};

class ReliabilityTest : public PersTest {
protected:
    void SetUp() override {
        PersTest::SetUp();
        RelNode::Register();
        m_sColour = MCFactoryRegistry::RegisterUDP("RelColour", MCCodes::pInteger, nullptr, true);
        Build();
    }

    /// Makes the model anew, the old one expunged: M(NS, A(C(D), B), E), with B.Link = C, D.Link = A,
    /// A.Links = (E, D), E.Count = 5 and D's colour 3, each node named and entered into NS.
    void Build() {
        if (m_pxModel)
            m_pxModel->Expunge(true);
        m_pxModel = Make(nullptr, PersRoot::c_sType);
        m_pxSpace = static_cast<MCNameSpace*>(Make(m_pxModel, MCNameSpace::c_sType));
        m_pxSpace->AddValidType(RelNode::c_sType);
        MCFactoryRegistry::RegisterUDP("RelColour", MCCodes::pInteger, m_pxModel, true);
        MCObject* a = Node(m_pxModel, "A");
        MCObject* c = Node(a, "C");
        Link(Node(a, "B"), RelNode::c_sLink, c);
        MCObject* d = Node(c, "D");
        Link(d, RelNode::c_sLink, a);
        MCObject* e = Node(m_pxModel, "E");
        Link(a, RelNode::c_sLinks, e);
        Link(a, RelNode::c_sLinks, d);
        SetLong(e, RelNode::c_sCount, 5);
        SetLong(d, m_sColour, 3);
    }

    /// A new node named `name` under `owner`, entered into the model's name space.
    MCObject* Node(MCObject* owner, const std::string& name) {
        MCObject* node = Make(owner, RelNode::c_sType);
        MCSPropertyAccessorT<ZVTString> accessor{ZVTString(name.c_str())};
        node->SetProperty(MCCodes::pName, accessor, MCPropertyAccessor::accessAdd);
        m_pxSpace->Insert(node, '_', 0, true);
        return node;
    }
    /// The first node named `name` in the model, or null.
    MCObject* Find(ZVTString name) { return m_pxSpace->FindObject(name); }

    /// Expunges every ownee of `owner` made after the first `keep`.
    static void DropOwneesAfter(MCObject* owner, long keep) {
        while (owner->GetOwneeCount() > keep)
            owner->GetLastOwnee()->Expunge(true);
    }

    /// The scope every check covers: the model and `more` roots, the host's types and the core's types
    /// a model holds, the names of the model; `observers` are the test's subscribers.
    ModelScope Scope(std::vector<MCObject*> more = {}, std::set<const MCSubscriber*> observers = {}) const {
        more.insert(more.begin(), m_pxModel);
        return {more,
                {RelNode::c_sType, PersRoot::c_sType, MCNameSpace::c_sType, MCCodes::tStringInfo},
                observers,
                {"A", "B", "C", "D", "E", "A_2", "C_2"}};
    }

    HUBScopedMessageHandler m_xMessages;
    MCObject* m_pxModel = nullptr;
    MCNameSpace* m_pxSpace = nullptr;
    short m_sColour = 0;
};

#endif

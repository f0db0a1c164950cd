// Round trip of random trees: whatever is saved comes back node by node, values equal and references
// pointing at the node in the same place of the restored tree.

#include <gtest/gtest.h>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include <random>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/PersTestSupport.h"

namespace {

/// Nodes in the order a save writes them: each owner, then its ownees from the last to the first.
void SaveOrder(MCObject* object, std::vector<MCObject*>& out) {
    out.push_back(object);
    std::vector<MCObject*> ownees;
    for (MCObject* o = object->GetFirstOwnee(); o; o = o->GetNextSibling())
        ownees.push_back(o);
    for (auto it = ownees.rbegin(); it != ownees.rend(); ++it)
        SaveOrder(*it, out);
}

using Positions = std::unordered_map<const MCObject*, long>;

/// Values by the property comparison; references by their targets' positions, as ids are remapped.
class PositionEquality : public MCPropertyEqualStrategy {
public:
    PositionEquality(const Positions& mine, const Positions& theirs) : m_rMine(mine), m_rTheirs(theirs) {}

    ZVTBoolean AreEqual(const MCObject* object, const MCProperty* mine, const MCObject* other,
                        const MCProperty* theirs) override {
        switch (mine->GetType()) {
            case MCCodes::pId:
                return true;
            case MCCodes::pReference:
            case MCCodes::pReferenceList:
                return Targets(object, mine->GetType(), m_rMine) ==
                       Targets(other, theirs->GetType(), m_rTheirs);
            default:
                return mine->IsEqualTo(theirs, false);
        }
    }

private:
    static std::vector<long> Targets(const MCObject* object, short type, const Positions& positions) {
        std::vector<long> out;
        auto position = [&](MCObject* target) {
            auto it = positions.find(target);
            return it == positions.end() ? -1 : it->second;
        };
        if (type == MCCodes::pReference) {
            MCSRefRawAccessor accessor;
            if (object->GetProperty(type, accessor))
                out.push_back(position(accessor.GetValue()));
        } else {
            MCVRefRawAccessor accessor;
            if (object->GetProperty(type, accessor))
                for (size_t i = 0; i < accessor.GetList()->Entries(); ++i)
                    out.push_back(position(accessor.GetList()->At(i)));
        }
        return out;
    }

    const Positions& m_rMine;
    const Positions& m_rTheirs;
};

class PersRoundTripTest : public PersTest, public ::testing::WithParamInterface<unsigned> {
protected:
    /// A tree of `count` nodes under a persistence root, each owned by a random earlier node.
    MCObject* BuildTree(std::mt19937& random, int count) {
        MCObject* root = Make(nullptr, PersRoot::c_sType);
        std::vector<MCObject*> nodes{root};
        for (int i = 0; i < count; ++i)
            nodes.push_back(Make(nodes[random() % nodes.size()]));
        for (MCObject* node : nodes)
            Fill(random, node, nodes);
        return root;
    }

    /// Gives `node` each kind of value with a chance of one in three; stored longs are 32 bits wide.
    static void Fill(std::mt19937& random, MCObject* node, const std::vector<MCObject*>& nodes) {
        auto chance = [&] { return random() % 3 == 0; };
        auto any = [&] { return nodes[random() % nodes.size()]; };
        auto set = [&](short type, MCPropertyAccessor&& accessor) {
            EXPECT_TRUE(node->SetProperty(type, accessor, MCPropertyAccessor::accessAdd));
        };
        if (chance())
            set(MCCodes::pInteger,
                MCSPropertyRawAccessorT<long>(static_cast<long>(random() % 2000000000u) - 1000000000L));
        if (chance())
            set(MCCodes::pDouble,
                MCSPropertyRawAccessorT<double>(std::uniform_real_distribution<double>(-1e9, 1e9)(random)));
        if (chance())
            set(MCCodes::pString, MCSPropertyRawAccessorT<ZVTString>(
                                      ZVTString(std::string(random() % 20, 'a' + random() % 26))));
        if (chance()) {
            ZVTSList<long> values;
            for (unsigned i = random() % 5; i > 0; --i)
                values.Append(static_cast<long>(random() % 1000));
            set(MCCodes::pIntegerList, MCVPropertyRawAccessorT<long>(values));
        }
        if (chance())
            set(MCCodes::pReference, MCSRefRawAccessor(any()));
        if (chance()) {
            ZVTSList<MCObject*> targets;
            for (unsigned i = 1 + random() % 4; i > 0; --i)
                targets.Append(any());
            set(MCCodes::pReferenceList, MCVRefRawAccessor(&targets));
        }
    }
};

TEST_P(PersRoundTripTest, RandomTreeComesBackNodeByNode) {
    const unsigned seed = GetParam();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    MCObject* root = BuildTree(random, 300);

    PersRestored r = Restore(Save(root));
    ASSERT_EQ(r.result, MCPersController::resultOk);

    std::vector<MCObject*> original;
    SaveOrder(root, original);
    ASSERT_EQ(r.created.size(), original.size());
    Positions mine, theirs;
    for (size_t i = 0; i < original.size(); ++i) {
        mine[original[i]] = static_cast<long>(i);
        theirs[r.created[i]] = static_cast<long>(i);
    }
    PositionEquality equality(mine, theirs);
    for (size_t i = 0; i < original.size(); ++i) {
        SCOPED_TRACE("node " + std::to_string(i));
        const MCObject* a = original[i];
        const MCObject* b = r.created[i];
        EXPECT_EQ(a->GetType(), b->GetType());
        EXPECT_TRUE(a->IsEqualTo(b, nullptr, &equality));
        const MCObject* ownerA = a->GetOwner(0, MCItem::rttiDerived);
        const MCObject* ownerB = b->GetOwner(0, MCItem::rttiDerived);
        EXPECT_EQ(ownerA ? mine[ownerA] : -1, ownerB ? theirs[ownerB] : -1);
        // Each restored ownee goes in front of its siblings, so they come back in reverse order.
        MCObject* last = r.created[i]->GetFirstOwnee();
        while (last && last->GetNextSibling())
            last = last->GetNextSibling();
        EXPECT_EQ(mine[original[i]->GetFirstOwnee()], theirs[last]);
    }
}

// Damaged files end in a result or one of the documented exceptions; the sanitizer build checks the rest.
TEST_P(PersRoundTripTest, DamagedFilesNeverCrash) {
    const unsigned seed = GetParam();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    MCObject* root = BuildTree(random, 30);
    const std::string bytes = Save(root);
    const size_t head = 40;  // the head is checked on its own
    for (int round = 0; round < 200; ++round) {
        std::string damaged = bytes;
        for (int flips = 1 + random() % 3; flips > 0; --flips)
            damaged[head + random() % (damaged.size() - head)] = static_cast<char>(random());
        try {
            Restore(damaged);
        } catch (const MCPersExObjectCreation&) {
        } catch (const EXBase&) {
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, PersRoundTripTest, ::testing::Values(1u, 7u, 42u, 2024u, 99991u));

}  // namespace

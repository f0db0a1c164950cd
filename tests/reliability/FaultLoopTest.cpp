// Every model transfer with its Nth operation failing, for N = 1, 2, ... until it goes through: each
// failure gives its documented result and leaves the model exactly as it was, sound and without strays.
// A memory stream's write fails only when memory does, so copy and paste fail their Nth allocation; a
// restore runs both ways. Then creations, edits, clones, expunges, expansions, registrations and posted
// commands with their Nth allocation failing, alone and with memory exhausted from then on: the model
// stays sound, and the sanitizer build finds anything leaked or used after it was freed.

#include <functional>
#include <regex>
#include <sstream>

#include "platform/ZVMTemplate.h"
#include "reliability/ReliabilityModel.h"
#include "support/AllocationHook.h"

// The Nth allocation fails while the countdown is armed. With g_bExhausting, every allocation after that
// one fails too, until g_bExhausted is cleared: memory that has run out, so that even clean-ups cannot
// allocate.
bool g_bExhausting = false;
bool g_bExhausted = false;
bool OnAllocate(std::size_t) {
    if (g_bExhausted)
        return false;
    if (!c_xAllocationFault.Hit())
        return true;
    g_bExhausted = g_bExhausting;
    return false;
}

namespace {

using P = MCPersController;

/// Runs `run` with its `failAt`th allocation failing, and with `exhausting` every one after it; whether
/// that allocation came.
template <class Run>
bool AllocationFailing(int failAt, bool exhausting, Run run) {
    g_bExhausting = exhausting;
    c_xAllocationFault.Arm(failAt);
    try {
        run();
    } catch (const std::bad_alloc&) {
    }
    const bool fired = c_xAllocationFault.Disarm();
    g_bExhausting = g_bExhausted = false;
    return fired;
}

/// What `controller` made that has no owner.
std::vector<MCObject*> CreatedRoots(const P& controller) {
    std::vector<MCObject*> roots;
    for (size_t i = 0; i < controller.GetCreatedObjects().Entries(); ++i)
        if (!controller.GetCreatedObjects().At(i)->GetOwner(0, MCItem::rttiDerived))
            roots.push_back(controller.GetCreatedObjects().At(i));
    return roots;
}

class FaultLoopTest : public ReliabilityTest {
public:
    /// A dump with every id replaced by "n".
    static std::string WithoutIds(const std::string& dump) {
        return std::regex_replace(dump, std::regex("([#@]|132=)-?[0-9]+"), "$1n");
    }
    /// A chain of records with these payloads on `medium`.
    static void BuildChain(std::stringstream& medium, std::initializer_list<const char*> payloads) {
        MCStream stream(medium, ZVTStream::binary);
        MCRecMgr manager(stream);
        for (const char* payload : payloads) {
            manager.WriteRec();
            stream << ZVTString(payload);
            stream.seekp(stream.tellp());
        }
    }

    /// Moves around a three-record chain and appends a fourth, each step with its `failAt`th operation of
    /// `kind` failing: a failed step answers eStreamFailed, leaves the manager where it was and goes
    /// through when repeated. Whether any fault came.
    bool RecordChain(FaultKind kind, int failAt) {
        std::stringstream medium, whole;
        BuildChain(medium, {"a", "bb", "ccc"});
        BuildChain(whole, {"a", "bb", "ccc", "dddd"});
        FaultyStream stream(medium);
        MCRecMgr manager(stream);
        bool fired = false;
        const std::function<MCRecMgr::eResult()> steps[] = {
            [&] { return manager.MoveNext(); },     [&] { return manager.MoveNext(); },
            [&] { return manager.MovePrev(); },     [&] { return manager.MoveLast(); },
            [&] { return manager.MoveToRecId(0); }, [&] { return manager.WriteRec(); }};
        for (const auto& step : steps) {
            if (&step == &steps[5]) {  // appends behind the last record's payload
                manager.MoveLast();
                ZVTString skipped;
                stream >> skipped;
                stream.seekp(stream.tellg());
            }
            const MCRecMgrState before = manager.GetState();
            stream.Arm(kind, failAt);
            const MCRecMgr::eResult result = step();
            const bool failed = stream.Disarm();
            fired |= failed;
            EXPECT_EQ(result, failed ? MCRecMgr::eStreamFailed : MCRecMgr::eOk);
            EXPECT_TRUE(!failed || manager.GetState() == before);
            EXPECT_TRUE(!failed || step() == MCRecMgr::eOk) << "once the fault has passed";
        }
        stream << ZVTString("dddd");
        EXPECT_EQ(medium.str(), whole.str()) << "the fourth record, appended, as if written in a row";
        return fired;
    }

    /// The global section of the model written and read back with the `failAt`th operation of `kind`
    /// failing: a failed write leaves a prefix of the section, a failed read a map of what came before.
    bool GlobalSection(FaultKind kind, int failAt) {
        std::stringstream good;
        MCStream plain(good, ZVTStream::binary);
        MCEnvironment::GetInstance()->SaveGlobals(plain, m_pxModel);
        std::stringstream medium(kind == FaultKind::read ? good.str() : "");
        FaultyStream stream(medium);
        stream.Arm(kind, failAt);
        MCUDPMap* map = nullptr;
        if (kind == FaultKind::write)
            MCEnvironment::GetInstance()->SaveGlobals(stream, m_pxModel);
        else if (char token = 0; !(stream >> token).fail())
            MCEnvironment::GetInstance()->RestoreGlobalToken(token, stream, &map);
        const bool fired = stream.Disarm();
        delete map;
        // What a read leaves on its medium is all of it.
        EXPECT_EQ(fired ? good.str().substr(0, medium.str().size()) : good.str(), medium.str());
        EXPECT_EQ(stream.fail(), fired);
        return fired;
    }

    /// Saves the model: a failed head is resultHeadNotWritten, a later failure leaves the stream failed
    /// and what went out before it a prefix of the whole file.
    bool Save(FaultKind kind, int failAt) {
        const std::string good = PersTest::Save(m_pxModel);
        std::stringstream medium;
        FaultyStream stream(medium);
        MCPersHeader header = PersLimits();
        stream.Arm(kind, failAt);
        const P::result result = P().SaveTo(stream, m_pxModel, header);
        const bool fired = stream.Disarm();
        // The head answers for itself; a later failure shows in the stream, and what went out stays.
        EXPECT_TRUE(result == P::resultOk || (fired && result == P::resultHeadNotWritten));
        EXPECT_EQ(stream.fail(), fired);
        EXPECT_EQ(fired ? good.substr(0, medium.str().size()) : good, medium.str());
        return fired;
    }

    /// A failed head throws EXUnexpected; a failure later restores what came before it, and the stream
    /// tells. Whatever was made is checked, then taken down.
    bool Restore(FaultKind kind, int failAt) {
        std::stringstream medium(PersTest::Save(m_pxModel));
        FaultyStream stream(medium);
        MCPersHeader header = PersLimits();
        P controller;
        MCObject* root = nullptr;
        stream.Arm(kind, failAt);
        bool threw = false;
        try {
            EXPECT_EQ(controller.RestoreFrom(stream, root, header), P::resultOk);
        } catch (const EXUnexpected&) {
            threw = true;
        }
        const bool fired = stream.Disarm();
        EXPECT_EQ(stream.fail(), fired);
        EXPECT_TRUE(!threw || (fired && controller.GetCreatedObjects().Entries() == 0));
        const std::vector<MCObject*> roots = CreatedRoots(controller);
        EXPECT_EQ(CheckModel(Scope(roots)), "");
        EXPECT_TRUE(fired || (root && roots.size() == 1 && root->GetOwneeCount() == 3));
        for (MCObject* made : roots)
            made->Expunge(true);
        return fired;
    }

    /// Restores the model with its `failAt`th allocation failing (under the read kind, with every one
    /// failing from then on): std::bad_alloc, or MCPersExObjectCreation when it is the factory's. What was
    /// made so far stays, each object listed or owned by one that is, and sound but for references the
    /// failure left unresolved; it is checked, then taken down.
    bool RestoreOutOfMemory(FaultKind kind, int failAt) {
        std::stringstream medium(PersTest::Save(m_pxModel));
        MCStream stream(medium, ZVTStream::binary);
        MCPersHeader header = PersLimits();
        P controller;
        MCObject* root = nullptr;
        const bool fired = AllocationFailing(failAt, kind == FaultKind::read, [&] {
            try {
                controller.RestoreFrom(stream, root, header);
            } catch (const MCPersExObjectCreation&) {
            }
        });
        const std::vector<MCObject*> roots = CreatedRoots(controller);
        const std::string faults = CheckModel(Scope(roots));
        EXPECT_EQ(fired ? std::regex_replace(faults, std::regex("unbound\\([0-9]+\\) "), "") : faults, "");
        EXPECT_TRUE(fired || (root && roots.size() == 1));
        for (MCObject* made : roots)
            made->Expunge(true);
        return fired;
    }

    /// Copies node A with its `failAt`th allocation failing (under the read kind, with every one failing
    /// from then on; a copy reads nothing but the model): std::bad_alloc, and no copy.
    bool CopyOut(FaultKind kind, int failAt) {
        MCObject* a = Find("A");
        const std::string good = Copy({a}, *m_pxModel);
        std::string bytes;
        const bool fired =
            AllocationFailing(failAt, kind == FaultKind::read, [&] { bytes = Copy({a}, *m_pxModel); });
        EXPECT_EQ(bytes, fired ? "" : good);
        return fired;
    }

    /// Pastes A's buffer: cut after `failAt` bytes or damaged there under E, what was whole stays
    /// (checked, then taken out again); under E and B with the `failAt`th allocation failing, the paste
    /// undoes both passes, unless the objects were announced already.
    bool PasteIn(FaultKind kind, int failAt) {
        // Taken once: each damaged buffer may leave a user-defined property of a damaged name behind,
        // which a later copy would carry.
        if (failAt == 1)
            m_sBuffer = Copy({Find("A")}, *m_pxModel);
        MCObject* e = Find("E");
        MCObject* b = Find("B");
        const long ownees = e->GetOwneeCount();
        const size_t cut = static_cast<size_t>(failAt);
        bool fired = cut < m_sBuffer.size();
        if (kind == FaultKind::read) {
            Paste(m_sBuffer.substr(0, cut), {e});
            EXPECT_EQ(CheckModel(Scope()), "");
            EXPECT_TRUE(fired || e->GetOwneeCount() == ownees + 1);
            std::vector<MCObject*> pasted;
            fault_detail::Subtree(e, pasted);
            MCSPropertyRawAccessorT<ZVTString> name;  // the last property of a record: it is whole
            for (MCObject* object : pasted)
                EXPECT_TRUE(object->GetProperty(MCCodes::pName, name)) << object->GetId();
            DropOwneesAfter(e, ownees);
            std::string damaged = m_sBuffer;
            damaged[cut % m_sBuffer.size()] ^= 0x5A;
            try {
                Paste(damaged, {e});
            } catch (const EXBase&) {
            }
        } else {
            // Before the objects are announced a failure takes them out again; after, they stay whole.
            const std::string before = TreeDump(m_pxModel);
            Paste(m_sBuffer, {e, b});
            const std::string whole = WithoutIds(TreeDump(m_pxModel));
            DropOwneesAfter(e, ownees);
            DropOwneesAfter(b, 0);
            fired = AllocationFailing(failAt, false, [&] { Paste(m_sBuffer, {e, b}); });
            const std::string after = TreeDump(m_pxModel);
            EXPECT_TRUE(after == before || WithoutIds(after) == whole) << after;
        }
        EXPECT_EQ(CheckModel(Scope()), "");
        DropOwneesAfter(e, ownees);
        DropOwneesAfter(b, 0);
        return fired;
    }

    std::string m_sBuffer;
};

TEST_F(FaultLoopTest, EveryTransferSurvivesItsNthOperationFailing) {
    const std::pair<const char*, bool (FaultLoopTest::*)(FaultKind, int)> operations[] = {
        {"save", &FaultLoopTest::Save},
        {"restore", &FaultLoopTest::Restore},
        {"restore out of memory", &FaultLoopTest::RestoreOutOfMemory},
        {"copy", &FaultLoopTest::CopyOut},
        {"record chain", &FaultLoopTest::RecordChain},
        {"global section", &FaultLoopTest::GlobalSection},
        // Last: a damaged buffer may register user-defined properties of damaged names for the model.
        {"paste", &FaultLoopTest::PasteIn},
    };
    const std::string before = TreeDump(m_pxModel);
    for (const auto& [name, run] : operations) {
        for (FaultKind kind : {FaultKind::write, FaultKind::read}) {
            const std::string what = std::string(name) + (kind == FaultKind::read ? "_read" : "_write");
            int failAt = 1;
            const int failures = FailureCount();
            for (;; ++failAt) {
                SCOPED_TRACE(what + " fails at " + std::to_string(failAt));
                const bool fired = (this->*run)(kind, failAt);
                ASSERT_EQ(TreeDump(m_pxModel), before);
                ASSERT_EQ(CheckModel(Scope()), "");
                if (!fired || FailureCount() > failures)
                    break;
            }
            RecordProperty(what, failAt);
        }
    }
}

// A type no test has made yet, so that its live-object table starts small and grows while this runs.
class Fresh : public mc::HostClass<7951> {
    friend mc::FactoryOf<Fresh>;
    using HostClass::HostClass;
};

// Creations with their Nth allocation failing, for N = 1, 2, ... until each goes through, over enough
// objects of a fresh type for its live-object table (asked for from the first on) to grow three times: a
// failed one leaves no id that resolves to what its owner does not hold.
TEST_F(FaultLoopTest, ACreationThatRunsOutOfMemoryLeavesNoTrace) {
    mc::RegisterClass<Fresh>("Fresh");
    MCObject* e = Find("E");
    for (int made = 0; made < 200; ++made) {
        const long ownees = e->GetOwneeCount();
        for (int failAt = 1;; ++failAt) {
            SCOPED_TRACE(std::to_string(made) + " fails at " + std::to_string(failAt));
            const long id = MCIdSpace::Global().RequestId() + 1;
            MCObject* object = nullptr;
            if (!AllocationFailing(failAt, false, [&] { object = Make(e, Fresh::c_sType); })) {
                ASSERT_NE(object, nullptr);
                ZVTHTableT<MCObject*>* table = nullptr;
                ASSERT_TRUE(MCFactoryRegistry::GetInstances(Fresh::c_sType, table, nullptr));
                break;
            }
            if (object)
                continue;
            // A failure once the object is made leaves it where its owner holds it.
            MCObject* left = MCObject::ResolveId(id);
            ASSERT_EQ(e->GetOwneeCount(), ownees + (left ? 1 : 0));
            ASSERT_EQ(left ? left->GetOwner(0, MCItem::rttiExact) : e, e);
            if (left)
                left->Expunge(true);
        }
    }
    EXPECT_EQ(CheckModel(Scope()), "");
}

// A first set that runs out of memory before its property is made leaves the next property made by hand
// to the usual check: one of a type its owner holds is refused.
TEST_F(FaultLoopTest, AFirstSetOutOfMemoryLeavesDuplicatesRefused) {
    MCObject* e = Find("E");  // holds a count
    bool ranOut = false;
    // Memory runs out when the pool's room for counts does, within the objects made here.
    for (int round = 0; round < 64 && !ranOut; ++round) {
        std::vector<MCObject*> fresh;
        for (int i = 0; i < 4096; ++i)
            fresh.push_back(Make(e, RelNode::c_sType));
        g_bExhausted = true;
        try {
            for (MCObject* object : fresh)
                SetLong(object, RelNode::c_sCount, 1);
        } catch (const std::bad_alloc&) {
            ranOut = true;
        }
        g_bExhausted = false;
    }
    ASSERT_TRUE(ranOut);
    EXPECT_THROW(new MCSPropertyT<long>(RelNode::c_sCount, e), EXDuplicateProperty);
}

// A converter that converts into nothing.
struct Idle : MCPropertyConverter {
    using MCPropertyConverter::MCPropertyConverter;
    ZVTBoolean Supports(short /*toType*/) const override { return false; }
};

// Counts itself and its runs.
struct Counted : MCCommand {
    Counted() { ++c_nAlive; }
    ~Counted() override { --c_nAlive; }
    ZVTBoolean Do() override { return ++c_nRun > 0; }
    static inline int c_nAlive = 0;
    static inline int c_nRun = 0;
};

// Edits, a clone, an expunge of the model, registrations (each of a code not used before), a posted command
// and a template expansion, each with its Nth allocation failing, for N = 1, 2, ... until it goes through,
// and again with every allocation failing from the Nth on: std::bad_alloc, and a model that stays sound,
// whatever part of the edit was done (a reference that could not watch its new target lets go of it, and
// the holders of an object whose end could not be told let go of it unheard). A command that could not be
// queued is released, one that was runs at the next flush; an expansion leaves nothing behind (the
// sanitizer build finds a leak) and the next one writes what a whole one wrote.
TEST_F(FaultLoopTest, EveryEditSurvivesItsNthAllocationFailing) {
    MCObject* clone = nullptr;
    std::vector<MCObject*> holders;
    short code = 8100;
    bool posted = false;
    const auto next = [&] { ++code; };
    const auto proceed = [](auto...) { return MCPropertySemantic::resultContinue; };
    // D with more holders than a short subscriber list keeps, the first of them then linked elsewhere.
    auto crowd = [&] {
        holders.clear();
        for (int i = 0; i < 20; ++i)
            Link(holders.emplace_back(Make(Find("E"), RelNode::c_sType)), RelNode::c_sLink, Find("D"));
    };
    // Over A's links, with a variable and a break-on variable.
    ZVMTemplate parsed;
    ZVMTemplateError error;
    ASSERT_TRUE(
        parsed.Parse("${Boolean(more)}${SetBoolean(more, \"true\")}"
                     "${foreach ForEach(Links, more)}${Property(Name)};${end}",
                     error));
    auto expand = [&] {
        MCDataButler butler(Find("A"));
        std::string out;
        return parsed.Expand(butler, out, error) ? out : "failed";
    };
    const struct {
        const char* pcName;
        std::function<void()> xEdit;
        std::function<void()> xPrepare = [] {};
        std::function<void()> xCheck = [] {};
    } edits[] = {
        {"clone A", [&] { clone = Find("A")->CloneTree(nullptr); }},
        {"expunge C", [&] { Find("C")->Expunge(true); }},
        {"expunge the model", [&] { std::exchange(m_pxModel, nullptr)->Expunge(true); }},
        {"set B's count", [&] { SetLong(Find("B"), RelNode::c_sCount, 7); }},
        {"link E to D", [&] { Link(Find("E"), RelNode::c_sLink, Find("D")); }},
        {"add E to B's links", [&] { Link(Find("B"), RelNode::c_sLinks, Find("E")); }},
        {"take E from A's links",
         [&] {
             MCVRefAccessor taken(Find("E"));
             Find("A")->SetProperty(RelNode::c_sLinks, taken, MCPropertyAccessor::accessRemove);
         }},
        {"new node under E", [&] { Node(Find("E"), "F"); }},
        {"take a holder off a crowded target", [&] { Link(holders[0], RelNode::c_sLink, Find("E")); }, crowd},
        {"register a converter", [&] { MCPropertyConverterRegistry::Register(new Idle(code)); }, next},
        {"register an edit rule",
         [&] { mc::Rule rule = mc::OnEdit(code, MCCodes::pInteger, proceed, MCPropertySemantic::PreEdit); },
         next},
        {"register a user-defined property",
         [&] {
             MCFactoryRegistry::RegisterUDP(("Udp" + std::to_string(code)).c_str(), MCCodes::pInteger,
                                            m_pxModel, true);
         },
         next},
        {"post a command",
         [&] {
             MCCommandHandler::PostCommand(*new Counted);
             posted = true;
         },
         [&] {
             Counted::c_nRun = 0;
             posted = false;
         },
         [&] {
             MCCommandHandler::FlushQueue();
             EXPECT_EQ(Counted::c_nRun, posted ? 1 : 0);
             EXPECT_EQ(Counted::c_nAlive, 0);
         }},
        {"expand a template", expand, [] {}, [&] { ASSERT_EQ(expand(), "E;D;"); }},
    };
    for (const auto& [name, edit, prepare, check] : edits) {
        for (int step = 0;; ++step) {
            const int failAt = step / 2 + 1;
            SCOPED_TRACE(std::string(name) + (step % 2 ? " fails from " : " fails at ") +
                         std::to_string(failAt));
            Build();
            prepare();
            clone = nullptr;
            const bool fired = AllocationFailing(failAt, step % 2 == 1, edit);
            if (m_pxModel) {
                ASSERT_EQ(CheckModel(clone ? Scope({clone}) : Scope()), "");
            }
            if (clone)
                clone->Expunge(true);
            check();
            if (!fired || HasFatalFailure())
                break;
        }
    }
}

}  // namespace

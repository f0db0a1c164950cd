// The command queue: order of posting, posts and flushes from inside a flush, an aborted flush, holders, and
// expunge commands whose object went first or that a subscriber posted.

#include <tuple>

#include "support/ModelTestSupport.h"

namespace {

std::string g_sRan;    // the names of the commands that ran, in order
int g_nDestroyed = 0;  // commands destroyed since the test began

// Logs its name when it runs, then runs its action, which may post, flush or throw.
struct Logged : MCCommand {
    Logged(std::string name, std::function<void()> act) : m_sName(std::move(name)), m_xAct(std::move(act)) {}
    ~Logged() override { ++g_nDestroyed; }
    ZVTBoolean Do() override {
        g_sRan += m_sName;
        if (m_xAct)
            m_xAct();
        return true;
    }
    std::string m_sName;
    std::function<void()> m_xAct;
};

MCCommand& Post(const char* name, std::function<void()> act = nullptr) {
    auto* command = new Logged(name, std::move(act));
    MCCommandHandler::PostCommand(*command);
    return *command;
}

class CommandTest : public ModelTest {
protected:
    void SetUp() override {
        ModelTest::SetUp();
        g_sRan.clear();
        g_nDestroyed = 0;
    }
    // The handler outlives every test and must be left idle and empty.
    static bool Idle() {
        MCCommandHandler* handler = MCCommandHandler::GetInstance();
        return handler && handler->Entries() == 0 && !handler->IsFlushing();
    }
};

TEST_F(CommandTest, CommandsRunInOrderOfPostingThosePostedDuringTheFlushAfterTheRest) {
    // 1 posts 4 and flushes from inside, which does nothing; 3 posts 5; 4, in the second round, posts 6.
    Post("1", [] {
        Post("4", [] { Post("6"); });
        MCCommandHandler::FlushQueue();
    });
    const MCCommandUser held(Post("2"));
    Post("3", [] { Post("5"); });
    MCCommandHandler::FlushQueue();
    // The held command outlives its run.
    EXPECT_EQ(g_sRan + " " + std::to_string(g_nDestroyed) + " " + std::to_string(Idle()), "123456 5 1");
}

TEST_F(CommandTest, AnExceptionReleasesAllThatWaitsAndReachesTheHost) {
    // Of any type; 1 posted a command that still waits apart when 3 throws.
    Post("1", [] { Post("p"); });
    Post("2");
    Post("3", [] { throw 42; });
    Post("4");
    Post("5");
    EXPECT_THROW(MCCommandHandler::FlushQueue(), int);
    EXPECT_EQ(g_sRan + " " + std::to_string(g_nDestroyed) + " " + std::to_string(Idle()), "123 6 1");
    Post("a");
    MCCommandHandler::FlushQueue();
    EXPECT_EQ(g_sRan, "123a") << "a later flush starts empty";
}

TEST_F(CommandTest, AnExpungeCommandTouchesItsObjectOnlyWhileItLives) {
    // Objects 0 (owning 1) and 2; the commands name them in order of posting (-1 for null), `before` is
    // expunged ahead of the flush; the result lists the objects left.
    const std::tuple<std::vector<int>, int, const char*> cases[] = {{{-1}, -1, "012"}, {{0}, -1, "2"},
                                                                    {{2}, 2, "01"},    {{2, 2}, -1, "01"},
                                                                    {{0, 1}, -1, "2"}, {{1, 0}, -1, "2"}};
    for (const auto& [posted, before, left] : cases) {
        MCObject* objects[3] = {Make(), nullptr, Make()};
        objects[1] = Make(objects[0]);
        const long ids[3] = {objects[0]->GetId(), objects[1]->GetId(), objects[2]->GetId()};
        for (int object : posted)
            MCCommandHandler::PostCommand(*new MCExpungeCommand(object < 0 ? nullptr : objects[object]));
        if (before >= 0)
            objects[before]->Expunge(true);
        MCCommandHandler::FlushQueue();
        std::string alive;
        for (int i = 0; i < 3; ++i)
            alive += MCObject::ResolveId(ids[i]) ? std::to_string(i) : "";
        EXPECT_EQ(alive, left) << "posted " << testing::PrintToString(posted) << ", expunged first "
                               << before;
    }
    // Posted by a subscriber while it hears an edit, the expunge must not pull the object from under the
    // edit: it waits for the host's flush.
    MCObject* heard = Make();
    const long id = heard->GetId();
    m_xLog.m_pxOnNotify = [](MCEvent& event) {
        if (event.GetEventType() == MCEvent::PropertySet)
            MCCommandHandler::PostCommand(*new MCExpungeCommand(static_cast<MCObject*>(event.GetSubject())));
    };
    heard->AddSubscriber(&m_xLog, MCEvent::subscriberObserver);
    EXPECT_TRUE(SetLong(heard, MCCodes::pInteger, 5) && MCObject::ResolveId(id) == heard);
    MCCommandHandler::FlushQueue();
    EXPECT_EQ(MCObject::ResolveId(id), nullptr);
}

}  // namespace

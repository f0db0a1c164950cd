#ifndef PERSTESTSUPPORT_H
#define PERSTESTSUPPORT_H

// Saving and restoring whole trees: a persistence root type for the host side and helpers that save to
// and restore from bytes in memory.

#include <sstream>
#include <string>
#include <vector>

#include "ModelCore/ModelCore.h"
#include "ModelCore/ModelCoreModern.h"
#include "support/RuleTestSupport.h"

/// The host's persistence root, type 530; registered here unless another unit of the binary did it.
class PersRoot : public mc::HostClass<MCCodes::tPersistenceRoot> {
public:
    static void Register() {
        if (!MCFactoryRegistry::IsRegistered(c_sType, nullptr))
            mc::RegisterClass<PersRoot>("ModelRoot");
    }

private:
    friend mc::FactoryOf<PersRoot>;
    using HostClass::HostClass;
};

/// The environment the controller writes and reads the global section through; installed once.
class PersEnvironment : public MCEnvironment {
public:
    static void Install() {
        static PersEnvironment environment;
        if (!MCEnvironment::GetInstance())
            SetSingleton(&environment);
    }
};

/// The head every test writes and accepts.
inline MCPersHeader PersLimits() {
    return MCPersHeader(4, 2, "Acme", "Tool", "4.2");
}

/// `bytes` as lower-case hex, two digits a byte, for formats pinned byte for byte.
inline std::string HexOf(const std::string& bytes) {
    std::string out;
    for (unsigned char c : bytes)
        out += std::string(1, "0123456789abcdef"[c >> 4]) + "0123456789abcdef"[c & 15];
    return out;
}

/// What a restore gave: the result, the root and everything the controller made.
struct PersRestored {
    MCPersController::result result = MCPersController::resultOk;
    MCObject* root = nullptr;
    std::vector<MCObject*> created;
};

class PersTest : public RuleTest {
protected:
    void SetUp() override {
        RuleTest::SetUp();
        PersRoot::Register();
        PersEnvironment::Install();
    }
    void TearDown() override {
        for (MCObject* object : m_xRestored)
            object->Expunge(true);
        RuleTest::TearDown();
    }

    static std::string Save(MCObject* object) {
        std::stringstream medium;
        MCStream stream(medium, ZVTStream::binary);
        MCPersHeader header = PersLimits();
        MCPersController controller;
        EXPECT_EQ(controller.SaveTo(stream, object, header), MCPersController::resultOk);
        return medium.str();
    }

    /// Restores `bytes`; ownerless restored objects are expunged at the end of the test, whatever the
    /// outcome, so a partial tree never leaks.
    PersRestored Restore(const std::string& bytes) {
        std::stringstream medium(bytes);
        MCStream stream(medium, ZVTStream::binary);
        MCPersHeader header = PersLimits();
        MCPersController controller;
        PersRestored out;
        try {
            out.result = controller.RestoreFrom(stream, out.root, header);
        } catch (...) {
            Collect(controller, out);
            throw;
        }
        Collect(controller, out);
        return out;
    }

    /// The clip buffer of `selection` copied out of the model `source`, through `converter` when given.
    static std::string Copy(const std::vector<MCObject*>& selection, MCObject& source,
                            MCClipIdConverter* converter = nullptr) {
        ZVTSList<MCObject*> objects;
        for (MCObject* object : selection)
            objects.Append(object);
        MCClipList copy(objects, source, converter ? MCClipList::modeConvert : MCClipList::modeCopy,
                        converter);
        std::string bytes(static_cast<size_t>(copy.GetBufferSize()), '\0');
        copy.CopyBuffer(bytes.data());
        return bytes;
    }
    /// Pastes `bytes` under each of `targets` in turn into the model of `into` (the first target when
    /// null); the ids of the objects placed there.
    static std::vector<long> Paste(std::string bytes, const std::vector<MCObject*>& targets,
                                   MCObject* into = nullptr, MCClipIdConverter* converter = nullptr) {
        ZVTSList<MCObject*> list;
        for (MCObject* object : targets)
            list.Append(object);
        ZVTOrderedVectorT<long> ids;
        MCClipList paste(list, into ? *into : *targets[0], bytes.data(), static_cast<int>(bytes.size()), &ids,
                         converter);
        return std::vector<long>(ids.Data(), ids.Data() + ids.Length());
    }

    std::vector<MCObject*> m_xRestored;

private:
    void Collect(const MCPersController& controller, PersRestored& out) {
        const ZVTSList<MCObject*>& created = controller.GetCreatedObjects();
        for (size_t i = 0; i < created.Entries(); ++i)
            out.created.push_back(created.At(i));
        // After an unknown token the tree is gone already.
        if (out.result == MCPersController::resultUnknownToken)
            return;
        for (MCObject* object : out.created) {
            if (!object->GetOwner(0, MCItem::rttiDerived))
                m_xRestored.push_back(object);
        }
    }
};

#endif

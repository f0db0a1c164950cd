#ifndef BENCHSUPPORT_H
#define BENCHSUPPORT_H

// What the benchmark programs share: memory readings, node names, and host object classes written the
// way a host writes them.

#include <charconv>
#include <fstream>

#if defined(__GLIBC__)
#include <malloc.h>
#endif
#include <unistd.h>

#include "ModelCore/ModelCore.h"
#include "foundation/ZVTPool.h"

#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 33))
#define MC_BENCH_HAVE_MALLINFO2 1
#endif

namespace bench {

/// Resident bytes of the process; 0 where /proc is missing.
inline double ResidentBytes() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0;
    long resident = 0;
    if (!(statm >> pages >> resident))
        return 0;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

/// Heap bytes in use, chunk headers included, with the pool's own mappings; 0 without mallinfo2.
inline double HeapBytes() {
#ifdef MC_BENCH_HAVE_MALLINFO2
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd + ZVTPool::MappedBytes());
#else
    return 0;
#endif
}

/// Hands free pages back, so that the next build has to touch its pages again and shows in the RSS.
inline void ReleaseFreeMemory() {
#if defined(__GLIBC__)
    malloc_trim(0);
#endif
}

/// A new object of `type` under `owner` (null: a root), made through the registry as a host makes one.
inline MCObject* Create(short type, MCObject* owner) {
    return static_cast<MCObject*>(MCFactoryRegistry::CreateItem(type, owner, nullptr, nullptr));
}

/// Registers a host property `code` called `name` as an alias of the core type `concrete`, compared by
/// default equality (`first`) and with no other flag, as every benchmark's properties are.
inline void RegisterProperty(short code, const char* name, short concrete) {
    MCFactoryRegistry::RegisterAliasProperty(code, name, concrete, true, false, false, false);
}

/// "n" followed by the decimal digits of i.
inline ZVTString NodeName(long i) {
    char text[24] = {'n'};
    *std::to_chars(text + 1, text + sizeof text - 1, i).ptr = '\0';
    return ZVTString(text);
}

/// Counts the PropertySet events it hears.
class PropertySetCounter : public MCSubscriber {
public:
    void Notify(MCEvent& event) override {
        if (event.GetEventType() == MCEvent::PropertySet)
            ++m_lHeard;
    }
    long m_lHeard = 0;
};

/// The root class level of the benchmark hosts: MCObject's constructors in the order HostNode passes.
class HostRoot : public MCObject {
protected:
    HostRoot(short type, MCFactorySignature& signature, MCFactoryContext* context)
        : MCObject(type, signature, context) {}
    HostRoot(MCObject* owner, MCFactoryContext* context, short type) : MCObject(type, owner, context) {}
};

/// A host class level of type `Type` under `Base`, registering itself in both constructors as every
/// host class does; HostNode<2, HostNode<1>> is two levels.
template <short Type, class Base = HostRoot>
class HostNode : public Base {
public:
    static constexpr short c_sType = Type;

    /// Registers the type under `supertype` with an object factory, once per process.
    static void Register(const char* name, short supertype) {
        static bool registered = false;
        if (!registered)
            new MCObjectFactoryT<HostNode, MCObject>(Type, name, supertype, 0, 10, 0, true, false);
        registered = true;
    }

    HostNode(short type, MCFactorySignature& signature, MCFactoryContext* context)
        : Base(type, signature, context) {
        MCObject::RegisterLevel(Type, context);
    }
    HostNode(MCObject* owner, MCFactoryContext* context, short type = Type) : Base(owner, context, type) {
        MCObject::RegisterLevel(Type, context);
    }

protected:
    ZVTBoolean IsType_(short type) const override { return type == Type || Base::IsType_(type); }
};

/// The host's persistence root: a save needs one at or above the object saved.
using ModelRoot = HostNode<MCCodes::tPersistenceRoot>;

/// The environment a save writes its global section through, installed once per process.
class Environment : public MCEnvironment {
public:
    static void Install() {
        static Environment environment;
        if (!MCEnvironment::GetInstance())
            SetSingleton(&environment);
    }
};

/// The head the benchmarks write, and the limits they restore with.
inline MCPersHeader Head() {
    return MCPersHeader(1, 0, "ModelCore", "Bench", "1.0");
}

}  // namespace bench

#endif

#ifndef MCUDPMAP_H
#define MCUDPMAP_H

#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTHDict.h"
#include "foundation/ZVTReference.h"
#include "foundation/ZVTString.h"
#include "foundation/ZVTVector.h"

/// One user-defined property as a stored model names it: its code in the saving process, its name, its
/// concrete type, whether it was registered with `first`, and the object types that use it.
class MODELCORE_API MCUDPInfo {
public:
    /// An empty record with room for 64 using types.
    MCUDPInfo();
    /// A record of the four stored fields, with room for one using type.
    MCUDPInfo(short code, const ZVTString& name, short concreteType, unsigned short first);

    /// Equal when code, name, concrete type and first flag are; the using types play no part.
    bool operator==(const MCUDPInfo& other) const;
    bool operator!=(const MCUDPInfo& other) const { return !(*this == other); }

    short m_sCode;
    ZVTString m_xName;
    short m_sConcreteType;
    unsigned short m_usFirst;
    ZVTOrderedVectorT<short> m_xUsingTypes;
};

/// Root of the translation maps; counted, so that a map may be shared while a transfer runs.
class MODELCORE_API MCMap : public ZVTReference {
public:
    ~MCMap() override;
};

template <class F, class T>
class MCMapToIterT;

/// A translation from values of `F` to values of `T`, one target per source.
template <class F, class T>
class MCMapToT : public MCMap {
public:
    using HashFn = typename ZVTHDict<F, T>::HashFn;

    /// An empty map hashing its sources with `hash`.
    explicit MCMapToT(HashFn hash) : m_xMap(hash, 64) {}

    /// Maps `from` to `to`, replacing an earlier target.
    void Add(const F& from, const T& to) { m_xMap.Insert(from, to); }
    /// Sets `to` when `from` is mapped and answers true; otherwise leaves `to` alone and answers false.
    ZVTBoolean Translate(const F& from, T& to) const { return m_xMap.Find(from, to); }
    /// The number of mapped sources.
    size_t Entries() const { return m_xMap.Entries(); }

private:
    friend class MCMapToIterT<F, T>;

    ZVTHDict<F, T> m_xMap;
};

/// A cursor over the pairs of an MCMapToT, in no fixed order; the map must not change while it walks.
template <class F, class T>
class MCMapToIterT {
public:
    /// A cursor before the first pair of `map`.
    explicit MCMapToIterT(MCMapToT<F, T>& map) : m_xIter(map.m_xMap) {}
    /// Moves to the next pair; false past the last.
    ZVTBoolean operator++() { return ++m_xIter; }
    /// The source of the current pair.
    const F& From() const { return m_xIter.Key(); }
    /// The target of the current pair.
    T& To() const { return m_xIter.Value(); }

private:
    ZVTHDictIter<F, T> m_xIter;
};

/// A translation of a type onto itself.
template <class T>
class MCMapT : public MCMapToT<T, T> {
public:
    using MCMapToT<T, T>::MCMapToT;
};

/// The user-defined property codes of one stored model, mapped to the codes of this process, and the
/// records of the model's user-defined properties that this process did not know when it read them; a
/// stream that adopts the map owns it.
class MODELCORE_API MCUDPMap : public MCMapT<short> {
public:
    /// An empty map with room for 64 unknown records.
    MCUDPMap();
    ~MCUDPMap() override;

    ZVTOrderedVectorT<MCUDPInfo> m_xUDPInfos;
};

#endif

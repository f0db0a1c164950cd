#ifndef MCITEM_H
#define MCITEM_H

#include <cstddef>
#include <cstdint>

#include "ModelCore/ZVFWMC/MCDebug.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTPool.h"

class MCFactoryContext;

/// What objects and properties share: a type code and a word of item flags.
class MODELCORE_API MCItem : public MCDebug {
public:
    /// The second argument of the type tests: rttiExact compares the code only, rttiDerived also asks
    /// IsType_.
    enum rtti { rttiExact = 0, rttiDerived = 1 };

    /// Item flags. Object and property flags share the word; the values are stored and must not change.
    enum item_flag : unsigned short {
        itemUndeletable = 0x0001,   ///< object: Expunge is refused while the owner is not going
        itemTreeExpunge = 0x4000,   ///< object: goes with its tree, no event, no reference clean-up
        itemExpunging = 0x8000,     ///< object: Expunge has begun
        itemTemp = 0x0001,          ///< property: for the host; the library never sets it
        itemSA = 0x0004,            ///< property: set by the host, cleared by value changes
        itemNulled = 0x0008,        ///< property: holds no value
        itemPreFetch = 0x0010,      ///< property: calculated on read, never stored
        itemNL = 0x0020,            ///< property: a restored reference not yet resolved
        itemPreFetchType = 0x0080,  ///< property: its type was registered as calculated
        itemFlag100 = 0x0100        ///< property: its type was registered with this flag
    };

    /// An item of `type` with no flags.
    explicit MCItem(short type) : m_sType(type) {}

    /// Items come from the small-block pool, packed to their size: a model holds millions of them.
    static void* operator new(std::size_t size) { return ZVTPool::AllocatePacked(size); }
    /// Gives the block back to the pool; the virtual destructor passes the whole item's size.
    static void operator delete(void* block, std::size_t size) noexcept {
        ZVTPool::ReleasePacked(block, size);
    }
    ~MCItem() override;

    /// The type code; 0 for none.
    short GetType() const { return m_sType; }
    /// Calls SetType_, then stores the code.
    void SetType(short type);
    /// True when `type` is this item's code or, with rttiDerived, when IsType_ says so.
    ZVTBoolean IsType(short type, rtti how) const {
        return type == m_sType || (how == rttiDerived && IsType_(type));
    }
    /// True when any bit of `mask` is set.
    ZVTBoolean GetFlag(unsigned short mask) const { return (m_uFlags & mask) != 0; }
    /// The flag word.
    unsigned short GetFlags() const { return m_uFlags; }
    /// Sets (`on`) or clears the bits of `flag` after SetFlag_ has agreed, possibly with other bits; false
    /// when SetFlag_ refused.
    ZVTBoolean SetFlag(unsigned short flag, ZVTBoolean on);
    /// Replaces the flag word with what SetFlags_ makes of `flags`, unless it refuses.
    void SetFlags(unsigned short flags);

    /// Runs the creation semantics of a new item; the base has none and answers true.
    virtual ZVTBoolean InvokeCreationSemantics(MCFactoryContext* context);
    /// How two items pair up under inheritance; the base answers 0.
    virtual long GetParallelism(MCItem* first, MCItem* second, ZVTBoolean flag) const;
    /// Whether `other` is equal to this item; the base answers true.
    virtual ZVTBoolean IsEqualTo(MCItem* other) const;

protected:
    // A restore replaces a stored object's flag word as it was saved, past the hooks.
    friend class MCPersRestoreVisitor;

    /// Veto and filter hook before one flag changes; may change `flag`. The base agrees.
    virtual ZVTBoolean SetFlag_(unsigned short& flag, ZVTBoolean on);
    /// The same for the whole word.
    virtual ZVTBoolean SetFlags_(unsigned short& flags);
    /// Hook before the type changes; the base does nothing.
    virtual void SetType_(short type);
    /// Whether the item is of `type` by anything but its own code; the base answers false.
    virtual ZVTBoolean IsType_(short type) const;

    /// Sets (`on` true) or clears the bits without the hooks.
    void SetFlagRaw(unsigned short flag, ZVTBoolean on) {
        if (on)
            m_uFlags = static_cast<unsigned short>(m_uFlags | flag);
        else
            m_uFlags = static_cast<unsigned short>(m_uFlags & ~flag);
    }
    /// Replaces the word without the hooks.
    void SetFlagsRaw(unsigned short flags) { m_uFlags = flags; }

private:
    friend class MCObject;

    short m_sType;
    unsigned short m_uFlags = 0;
    // Room the layout leaves anyway: an object keeps here the generation its audibility memo was taken at
    // (MCObject::IsHeard), 0 for none; a property leaves it alone.
    mutable std::uint32_t m_nHeardAt = 0;
};

#endif

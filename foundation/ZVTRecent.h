#ifndef ZVTRECENT_H
#define ZVTRECENT_H

/// Remembers, for N slots of short keys (a key's slot by its low bits), the value a table last gave for
/// the key: a front for tables asked for the same few type codes over and over. Owns nothing. A value
/// remembered is answered without asking the table, so whoever changes the table calls Forget.
template <class Value, unsigned N = 64>
class ZVTRecentT {
public:
    /// The value remembered for `key`; null when its slot holds another key or nothing.
    Value* Find(short key) const {
        const Slot& slot = m_axSlots[SlotOf(key)];
        return slot.m_sKey == key ? slot.m_pxValue : nullptr;
    }
    /// Remembers `value` for `key` in place of what the key's slot held; a null value remembers nothing.
    void Remember(short key, Value* value) { m_axSlots[SlotOf(key)] = Slot{key, value}; }
    /// Forgets every value.
    void Forget() {
        for (Slot& slot : m_axSlots)
            slot = Slot();
    }

private:
    struct Slot {
        short m_sKey = 0;
        Value* m_pxValue = nullptr;
    };
    static unsigned SlotOf(short key) { return static_cast<unsigned short>(key) % N; }

    Slot m_axSlots[N];
};

#endif

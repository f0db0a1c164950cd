#ifndef ZVTSMARTPTR_H
#define ZVTSMARTPTR_H

/// Owns one object for the length of a scope and deletes it at the end; not copyable.
template <class T>
class ZVTSmartPtrT {
public:
    /// Takes ownership of target, which may be null.
    explicit ZVTSmartPtrT(T* target = nullptr) : m_pxTarget(target) {}
    ZVTSmartPtrT(const ZVTSmartPtrT&) = delete;
    ZVTSmartPtrT& operator=(const ZVTSmartPtrT&) = delete;
    /// Deletes the target.
    virtual ~ZVTSmartPtrT() { delete m_pxTarget; }

    /// The target, still owned; may be null.
    T* Get() const { return m_pxTarget; }
    /// Gives up ownership and returns the target.
    T* Release() {
        T* target = m_pxTarget;
        m_pxTarget = nullptr;
        return target;
    }
    /// Deletes the old target and owns the new one; resetting to the same pointer keeps it.
    void Reset(T* target) {
        if (target == m_pxTarget)
            return;
        T* old = m_pxTarget;
        m_pxTarget = target;
        delete old;
    }

private:
    T* m_pxTarget;
};

/// A ZVTSmartPtrT for class types, with member access.
template <class T>
class ZVTSmartClassPtrT : public ZVTSmartPtrT<T> {
public:
    /// Takes ownership of target, which may be null.
    explicit ZVTSmartClassPtrT(T* target = nullptr) : ZVTSmartPtrT<T>(target) {}
    /// The target's members; the target must not be null.
    T* operator->() const { return this->Get(); }
    /// The target; it must not be null.
    T& operator*() const { return *this->Get(); }
};

#endif

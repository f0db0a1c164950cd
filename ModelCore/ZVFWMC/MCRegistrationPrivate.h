#ifndef MCREGISTRATIONPRIVATE_H
#define MCREGISTRATIONPRIVATE_H

// The count of changes to what a class level's registration reads: the type table (aliases), the
// object-rule handlers with their rules and links, the property-rule handlers and the notification
// entries. A registration that ran at one count without changing it does nothing but move the context's
// ancestor types when it runs again at that count with the same context, so it may be skipped then.

#include <cstdint>

namespace mc_detail {

/// Starts at 1, so 0 never names a current count.
inline std::uint64_t c_nRegistryChanges = 1;

/// Called by every registry whenever anything a registration reads changes, and when a registry comes or
/// goes.
inline void RegistriesChanged() {
    ++c_nRegistryChanges;
}

}  // namespace mc_detail

#endif

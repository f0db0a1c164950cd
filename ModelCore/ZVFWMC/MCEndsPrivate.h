#ifndef MCENDSPRIVATE_H
#define MCENDSPRIVATE_H

// The count of objects ended on this thread. A walk that runs host code between its steps reads it before
// and after: while it has not moved, no object the walk holds can have gone, and nothing needs looking up.
// Inline, so that the check is one load wherever it stands.

#include <cstdint>

namespace mc_detail {

inline __attribute__((tls_model("initial-exec"))) thread_local std::uint64_t t_nObjectEnds = 0;

/// How many objects have ended on this thread so far.
inline std::uint64_t ObjectEnds() {
    return t_nObjectEnds;
}

}  // namespace mc_detail

#endif

// The write-back of a changed IDX node along the descent path.
#pragma once

#include "idx.h"

namespace rv::idx {

// Writes `nd`, the node at depth d of the descent path whose entries an add
// or delete changed, and carries the consequences up to the root: splits,
// merges, emptied nodes, a new or collapsed root, and the parents' entries
// when the node's last entry changed (`lastChanged`).
int16_t Settle(IdxState* st, int d, Node& nd, bool lastChanged);

}  // namespace rv::idx

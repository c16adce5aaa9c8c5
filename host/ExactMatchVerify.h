// The part of verify that compares exact-match tables: a chip places their entries itself, so they are read
// as a whole and found by their keys. One thread, that of the control plane.
#pragma once

#include "host/ChipVerify.h"

namespace Host {

// Adds what is found of the shadow's table on the FAPs of the mask. Of an entry its key, its result and its
// type count, not the marks and fields of the chip's own.
void compareEntries(ControlPlane& plane, LiveTable const& live, LoamAsicUtils::HwShadowBase const& shadow,
                    Sluice::Fapmask const& faps, Verdict& verdict);

}  // namespace Host

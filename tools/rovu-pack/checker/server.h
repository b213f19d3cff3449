// The files as a server sends them to a device.

#pragma once

#include "host/fault.h"
#include "spec_view/finding.h"
#include "spec_view/tars.h"

/// Fetches each tar from its URL, as a device does: without following redirects, up to its limit, and a part again, as
/// after a broken transfer. Nothing is kept.
/// \return EINTR, or a fault of libcurl itself.
Fault checkServer(const SpecView& spec, const Tars& tars, Findings* findings);

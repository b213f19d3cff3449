// The rules by which `check` judges what the device does not. Each function is one subject, and returns
// what it found.

#pragma once

#include "device_verdict.h"
#include "spec_view.h"

/// The file and its text, before anything is evaluated: size, marker, words.
Findings checkText(const SpecFile& file, const SignatureUse& use);

/// Keys that nothing reads, values that are nil, entries after a gap.
Findings checkKeys(const SpecView& spec);

/// Digests, sizes, versions, models.
Findings checkValues(const SpecView& spec);

/// Schemes and characters of URLs.
Findings checkUrls(const SpecView& spec);

/// Names that reach a shell, tar or the work directory.
Findings checkNames(const SpecView& spec);

/// Dependency lists: what they test, and whether anything can pass.
Findings checkDependencies(const SpecView& spec);

/// The list as a whole: what is flashed, and how the run ends.
Findings checkParts(const SpecView& spec);

/// Volumes of the set that boots which the update, on some device, does not write. Nothing if every device
/// refuses the spec, or stays on its set.
Findings checkBootSet(const SpecView& spec);

// The rules by which `check` judges what the device does not: each function is one subject.

#pragma once

#include "spec_view.h"

/// The file and its text, before anything is evaluated: size, marker, words.
void checkText(const SpecFile& file, Findings* findings);

/// Keys that nothing reads, values that are nil, entries behind a gap.
void checkKeys(const SpecView& spec, Findings* findings);

/// Digests, sizes, versions, models.
void checkValues(const SpecView& spec, Findings* findings);

/// Names that reach a shell, tar or the work directory.
void checkNames(const SpecView& spec, Findings* findings);

/// Dependency lists: what they test, and whether anything can pass.
void checkDependencies(const SpecView& spec, Findings* findings);

/// The list as a whole: what is flashed, and how the run ends.
void checkParts(const SpecView& spec, Findings* findings);

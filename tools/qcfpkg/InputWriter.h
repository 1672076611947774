#pragma once

#include "package/QCFPackage.h"

#include "Inputs.h"
#include "UpdateRules.h"
#include "WriteProgress.h"

// Writes an input as an entry into a package that is in an update, or whose changes are collected
// for one, and notes what must have come of it. Raises tools::Failure for an input that cannot be
// read, and the library's exceptions.
void writeInput(pkg::IPackage<>& package, const Input& input, bool stored, Expectation& expected,
                WriteProgress& progress);

#pragma once

#include "support/sdb_builder.h"

// The example database of examples/: what an intruder leaves behind, among ordinary fixes.
//
// It calls itself a font pack. Of its executables, "recordsvc.exe" gets an in-memory patch and
// "ledger.exe" a module of the intruder's choosing; the rest is what such databases usually hold,
// with at least one of everything that a report treats in a way of its own: messages, packages,
// layers, flags, attached data, names in other scripts, and texts with markup. All vendors and
// products are invented.
namespace test_support {

// The same bytes at every call. Labels that tests may ask offset_of() for: "patch", "companion",
// "pin_version", "redirect_paths", "late_start", "layer", "keep_heap", "run_as_caller",
// "transform", "transform_file", "service_exe", "ledger_exe", "plan_exe", "cyrillic_exe",
// "markup_exe", "plot_exe", "viewer_exe", "plot_driver", "package".
sdb_builder sample_database_builder();

bytes sample_database();

} // namespace test_support

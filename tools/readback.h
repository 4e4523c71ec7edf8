// SPDX-License-Identifier: Apache-2.0
// After a run, while it still owns the storage root: do the curve files say
// what this run computed? The device curve file must hold this run's curve
// exactly as the library's file layer writes it (six decimals, one value a
// line). An identification also names the values that were not numbers when
// its correlation is not one, since the library then answers "same headset".
#pragma once

struct Report;

// Fills report->curveFile, ->referenceOhms (an identification's reference),
// ->identificationNullBecause and ->warnings.
void readBackFiles(Report* report);

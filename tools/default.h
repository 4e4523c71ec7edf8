// SPDX-License-Identifier: Apache-2.0
// default: the last run's device curve becomes the identification reference.
#pragma once

#include <string>

// Stores it, holding the storage root throughout; the exit status.
int storeReference(const std::string& root, bool wait);

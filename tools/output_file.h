// SPDX-License-Identifier: Apache-2.0
// Outputs that are whole or absent. A one-shot output is written under a
// temporary name in its own folder (its extension kept, for writers that go
// by it) and renamed onto its name when complete; a device or a FIFO is
// written directly and never renamed onto. Every temporary is registered, so
// that a failure or a signal removes it.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

// Where to write `target`: a new registered temporary beside it (mode as a
// new file would get), or `target` itself when it is an existing device or
// FIFO. False with "TARGET: cannot write: REASON".
bool beginOutput(const std::string& target, std::string* writeTo, std::string* error);
// Renames the temporary onto its target (nothing to do for a direct write);
// false with a reason, the temporary removed.
bool finishOutput(const std::string& target, const std::string& writtenTo, std::string* error);
// Removes the temporary of an output that failed (nothing for a direct write).
void abandonOutput(const std::string& writtenTo);
// Writes target through a writer that takes a path (libsndfile, the library's
// file layer, the plot script): whole or not at all. The writer's reason is
// given with the temporary's name replaced by the target's.
bool writeThrough(const std::string& target, const std::function<bool(const std::string& path, std::string* error)>& writer,
                  std::string* error);
// Writes bytes to target, whole or not at all: write, flush and close checked.
bool writeOutput(const std::string& target, const std::string& bytes, std::string* error);
// A new registered temporary file under $TMPDIR (else /tmp) ending in suffix.
bool scratchFile(const std::string& suffix, std::string* path, std::string* error);
// Refuses, before anything is written, an output that is also an input or
// another output: existing files compared by device and inode, new ones by
// their resolved paths; devices and FIFOs may be named more than once.
// Outputs are (option, path); false with "OPTION PATH: REASON".
bool distinctOutputs(const std::vector<std::string>& inputs,
                     const std::vector<std::pair<std::string, std::string>>& outputs, std::string* error);
// Removes every registered temporary; async-signal-safe.
void removeTemporaries();

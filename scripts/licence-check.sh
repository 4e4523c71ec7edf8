#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# LICENSE (Apache-2.0, as Android.bp declares) and NOTICE are present, and every
# source file under version control carries exactly one SPDX line. Data
# (tests/data, fuzz inputs, docs) and the README need none.
set -euo pipefail
cd "$(dirname "$0")/.."
grep -q "Apache License" LICENSE && grep -q "Version 2.0, January 2004" LICENSE || { echo "licence: LICENSE is not Apache-2.0" >&2; exit 1; }
grep -q "BSD-3-Clause" NOTICE || { echo "licence: NOTICE does not name kissfft's BSD-3-Clause" >&2; exit 1; }
bad=0
while IFS= read -r f; do
  n=$(grep -c -E '^(#|//|/\*) SPDX-License-Identifier: ' "$f" || true)
  if [ "$n" != 1 ]; then echo "licence: $f has $n SPDX lines (one expected)" >&2; bad=1; fi
done < <(git ls-files -- '*.cpp' '*.h' '*.c' '*.py' '*.sh' '*.cmake' '*.in' '*.map' '*.bp' '*.rc' '*.te' \
           '*CMakeLists.txt' '*file_contexts' '*property_contexts' .ci/run \
         | grep -v -E '^(tests/data|fuzz/corpus|fuzz/regressions|docs)/')
exit $bad

#!/usr/bin/env bash
# What ./morvik sdist makes builds with the host's own distutils, and is installed by them.
# usage: test_source_distribution.sh HOST
set -euo pipefail

root=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd)
host=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

made=$("$root/morvik" sdist --python "$host" "$scratch")
[[ -z $(cd "$root" && ls -d morvik-*/ MANIFEST 2>/dev/null) ]]
tar -x -C "$scratch" -f "$made"
cd "$scratch/$(basename "$made" .tar.gz)"

# A host that lies elsewhere than it was configured for does not know where its headers are.
includes=$("$host" -E "$root/tools/describe_host.py" | sed -n 's/^includes=//p')
CPATH=${includes//;/:} "$host" setup.py -q install \
    --install-lib="$scratch/site" --install-scripts="$scratch" --install-data="$scratch"

main=sorrel
[[ $("$host" -V 2>&1) != *' 2.6'* ]] || main=sorrel.__main__
echo 'print 6 * 7' >"$scratch/program.py"
cd "$scratch"
printf 'continue\n' | PYTHONPATH=$scratch/site "$host" -m "$main" program.py |
    sed "s|$scratch/||" >out
diff out - <<'EOF'
> program.py(1)<module>()
-> print 6 * 7
(sorrel) 42
The program ended with exit status 0.
EOF

#!/usr/bin/env bash
# Fetches the map page's libraries from the npm registry into views/map/web/vendor/, checks
# every tarball against the integrity the registry publishes for it, and keeps only the files
# the page loads with their licences. The build never downloads: the committed copy is what it
# uses, and this script is how that copy was made (run it again to check or to move versions).
#
#   leaflet 1.9.4                (BSD-2-Clause)  the map
#   leaflet.markercluster 1.5.3  (MIT)           clusters of photo markers
#   world-atlas 2.0.2            (ISC; Natural Earth 110m data, public domain)  country outlines
#   topojson-client 3.1.0        (ISC)           turns the outlines into GeoJSON in the page
set -euo pipefail

here="$(cd "$(dirname "$0")/.." && pwd)"
dest="$here/views/map/web/vendor"
registry="${NPM_REGISTRY:-https://registry.npmjs.org}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# name version tarball-name integrity
packages=(
  "leaflet 1.9.4 leaflet sha512-nxS1ynzJOmOlHp+iL3FyWqK89GtNL8U8rvlMOsQdTTssxZwCXh8N2NB3GDQOL+YR3XnWyZAxwQixURb+FA74PA=="
  "leaflet.markercluster 1.5.3 leaflet.markercluster sha512-vPTw/Bndq7eQHjLBVlWpnGeLa3t+3zGiuM7fJwCkiMFq+nmRuG3RI3f7f4N4TDX7T4NpbAXpR2+NTRSEGfCSeA=="
  "world-atlas 2.0.2 world-atlas sha512-IXfV0qwlKXpckz1FhwXVwKRjiIhOnWttOskm5CtxMsjgE/MXAYRHWJqgXOpM8IkcPBoXnyTU5lFHcYa5ChG0LQ=="
  "topojson-client 3.1.0 topojson-client sha512-605uxS6bcYxGXw9qi62XyrV6Q3xwbndjachmNxu8HWTtVPxZfEJN9fd/SZS1Q54Sn2y0TMyMxFj/cJINqGHrKw=="
)

fetch() {  # name version file integrity -> unpacked folder $work/$name
  local name="$1" version="$2" file="$3" integrity="$4"
  local tgz="$work/$name-$version.tgz"
  curl -fsSL --retry 3 -o "$tgz" "$registry/$name/-/$file-$version.tgz"
  local got="sha512-$(openssl dgst -sha512 -binary "$tgz" | base64 -w0)"
  if [ "$got" != "$integrity" ]; then
    echo "fetch-map-assets: $name@$version does not match its published integrity" >&2
    echo "  expected $integrity" >&2
    echo "  got      $got" >&2
    exit 1
  fi
  mkdir -p "$work/$name"
  tar -xzf "$tgz" -C "$work/$name" --strip-components=1
  echo "$name@$version: integrity checked" >&2
}

for p in "${packages[@]}"; do
  # shellcheck disable=SC2086
  fetch $p
done

rm -rf "$dest"
mkdir -p "$dest/leaflet/images" "$dest/markercluster" "$dest/world-atlas" "$dest/topojson-client"

cp "$work/leaflet/dist/leaflet.js" "$work/leaflet/dist/leaflet.css" "$work/leaflet/LICENSE" "$dest/leaflet/"
cp "$work/leaflet/dist/images/"*.png "$dest/leaflet/images/"

mc="$work/leaflet.markercluster"
cp "$mc/dist/leaflet.markercluster.js" "$mc/dist/MarkerCluster.css" "$mc/dist/MarkerCluster.Default.css" \
   "$mc/MIT-LICENCE.txt" "$dest/markercluster/"

cp "$work/world-atlas/countries-110m.json" "$work/world-atlas/LICENSE" "$dest/world-atlas/"
cp "$work/topojson-client/dist/topojson-client.min.js" "$work/topojson-client/LICENSE" "$dest/topojson-client/"

{
  echo "Fetched by scripts/fetch-map-assets.sh from the npm registry; integrity checked."
  for p in "${packages[@]}"; do
    set -- $p
    echo "$1@$2 $4"
  done
} > "$dest/VERSIONS.txt"
find "$dest" -type f -exec chmod 644 {} +
echo "fetch-map-assets: copied into $dest" >&2

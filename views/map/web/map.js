// The picture map page. The program talks to it through a web channel object named "external"
// (setMapCoords, takeMarkers, openPicture, pageReady) and calls getMapRange, worldZoom and
// setMapRange by name. The form "f1" carries the numbers both ways.
//
// Two layers of land: a plain graticule with the country outlines of the bundled Natural Earth
// data, always drawn, in a pane under the tiles; and OpenStreetMap tiles over it. Without a
// network the tiles never load and the outlines are what the user sees; with one the tiles
// cover them. Nothing has to decide which of the two is there.

var myMapObject = null;
var bridge = null;
var pictures = null;     // the marker cluster group
var shownPictures = 0;
var pulling = false;

function start() {
  if (typeof QWebChannel === 'undefined' || typeof qt === 'undefined') {
    // Opened outside the program: a map with the page's own defaults.
    myMap();
    return;
  }
  new QWebChannel(qt.webChannelTransport, function (channel) {
    bridge = channel.objects.external;
    bridge.markersWaiting.connect(pullMarkers);
    bridge.markersCleared.connect(clearMarkers);
    myMap();
  });
}

// Asks the program for the remembered centre and zoom (none on first use: the inputs keep
// their defaults), then builds the map from the inputs.
function myMap() {
  var f = document.forms.f1;
  if (!bridge) {
    buildMap(f);
    return;
  }
  bridge.setMapCoords(function (inputs) {
    if (inputs && inputs.top !== undefined) {
      f.top.value = inputs.top;
      f.left.value = inputs.left;
      f.zoom.value = inputs.zoom;
    }
    buildMap(f);
    bridge.pageReady();
  });
}

function number(input, fallback) {
  var v = parseFloat(input.value);
  return isFinite(v) ? v : fallback;
}

function buildMap(f) {
  myMapObject = L.map('map', {
    center: [number(f.top, 51.5), number(f.left, -0.2)],
    zoom: Math.max(1, Math.round(number(f.zoom, 6))),
    zoomControl: true,
    worldCopyJump: true,
    minZoom: 1
  });
  myMapObject.attributionControl.setPrefix('<a href="https://leafletjs.com">Leaflet</a>');
  myMapObject.createPane('outlines');
  myMapObject.getPane('outlines').style.zIndex = 150;  // under the tiles (200)
  var outlines = L.canvas({pane: 'outlines'});
  drawGraticule(outlines);
  drawCountries(outlines);
  L.tileLayer('https://tile.openstreetmap.org/{z}/{x}/{y}.png', {
    maxZoom: 19,
    attribution: '&copy; <a href="https://www.openstreetmap.org/copyright">OpenStreetMap</a> contributors'
  }).addTo(myMapObject);
  L.control.scale().addTo(myMapObject);
  pictures = L.markerClusterGroup({chunkedLoading: true, chunkInterval: 100, chunkDelay: 20});
  myMapObject.addLayer(pictures);
}

function drawGraticule(renderer) {
  var lines = [];
  for (var lat = -80; lat <= 80; lat += 20) lines.push([[lat, -180], [lat, 180]]);
  for (var lng = -180; lng <= 180; lng += 30) lines.push([[-85, lng], [85, lng]]);
  L.polyline(lines, {renderer: renderer, color: '#7f9db9', weight: 0.6, interactive: false}).addTo(myMapObject);
}

function drawCountries(renderer) {
  var request = new XMLHttpRequest();
  request.open('GET', 'vendor/world-atlas/countries-110m.json');
  request.onload = function () {
    try {
      var topology = JSON.parse(request.responseText);
      var land = topojson.feature(topology, topology.objects.countries);
      L.geoJSON(land, {
        renderer: renderer,
        interactive: false,
        attribution: 'Outlines: Natural Earth',
        style: {color: '#6b7b8c', weight: 0.8, fillColor: '#f2efe6', fillOpacity: 1}
      }).addTo(myMapObject);
    } catch (e) {
      // Without the outlines the graticule still shows where the map is.
    }
  };
  request.send();
}

function clampLat(v) { return Math.max(-90, Math.min(90, v)); }
function clampLng(v) { return Math.max(-180, Math.min(180, v)); }

// The visible area into the inputs: the north-east and south-west corners and the zoom. A view
// wider than the world, or one that runs over the 180th meridian, is cut at the world's edges.
function getMapRange() {
  if (!myMapObject) return false;
  var f = document.forms.f1;
  var b = myMapObject.getBounds();
  var centre = myMapObject.getCenter().wrap();
  var shift = centre.lng - myMapObject.getCenter().lng;
  f.top.value = clampLat(b.getNorth());
  f.right.value = clampLng(b.getEast() + shift);
  f.bottom.value = clampLat(b.getSouth());
  f.left.value = clampLng(b.getWest() + shift);
  f.zoom.value = myMapObject.getZoom();
  return true;
}

function worldZoom() {
  if (!myMapObject) return false;
  myMapObject.setView([0, 0], 1);
  return true;
}

// Fits the map to the rectangle in the inputs.
function setMapRange() {
  if (!myMapObject) return false;
  var f = document.forms.f1;
  var top = parseFloat(f.top.value), left = parseFloat(f.left.value);
  var bottom = parseFloat(f.bottom.value), right = parseFloat(f.right.value);
  if (!isFinite(top) || !isFinite(left) || !isFinite(bottom) || !isFinite(right)) return false;
  myMapObject.fitBounds([[bottom, left], [top, right]]);
  return true;
}

// Pictures arrive in batches the page asks for one after another, so that a hundred thousand
// positions never arrive as one message and the cluster group adds them in chunks between
// frames.
function pullMarkers() {
  if (pulling || !bridge || !pictures) return;
  pulling = true;
  bridge.takeMarkers(1000, function (batch) {
    pulling = false;
    if (!batch || batch.length === 0) {
      bridge.markersShown(shownPictures);
      return;
    }
    var markers = [];
    for (var i = 0; i < batch.length; ++i) {
      var p = batch[i];  // [id, latitude, longitude, name]
      var m = L.marker([p[1], p[2]], {title: p[3]});
      m.pictureId = p[0];
      m.on('click', function (e) { bridge.openPicture(e.target.pictureId); });
      markers.push(m);
    }
    pictures.addLayers(markers);
    shownPictures += markers.length;
    setTimeout(pullMarkers, 0);
  });
}

function clearMarkers() {
  if (pictures) pictures.clearLayers();
  shownPictures = 0;
}

function markerCount() {
  return pictures ? pictures.getLayers().length : 0;
}

// Moves the view onto the markers (after a search).
function fitMarkers() {
  if (!pictures || pictures.getLayers().length === 0) return false;
  myMapObject.fitBounds(pictures.getBounds(), {maxZoom: 12, padding: [20, 20]});
  return true;
}

#include "base/string_table.h"

#include <algorithm>
#include <iterator>

namespace trovix::base {
namespace {

struct Entry {
  uint32_t id;
  std::string_view text;
};

// Sorted by id. New texts go in their place by number.
constexpr Entry kStrings[] = {
    {10000, "This program requires windows Vista or later\nDesktop search v3+ recommended "},
    {10002, "The settings file cannot be written\n%1\nUse the /I command line switch to specify a location where you have write permissions"},
    {10022, "Nothing found; try searching in another folder or use different criteria"},
    {10024, "In checkbox mode you need to tick the boxes to operate on items.\nOr turn off the checkbox mode from program options"},
    {10025, "Cannot access contents of selected item(s)"},
    {10027, "Please specify what to search for, e.g. a filename"},
    {10028, "Please supply a valid root folder for the search"},
    {10029, "This item cannot be renamed"},
    {10030, "For one reason or other, some item(s) couldn't be renamed"},
    {10036, "No GPS map data found for selected item"},
    {10037, "Scripting must be enabled to see and use the map\nPlease restore your internet explorer security options to their default values"},
    {11073, "Combine keywords and \"quoted phrases\" with AND, OR, NOT and brackets, e.g.\n(this OR that) AND NOT \"express ions\""},
    {11185, "(Not extracted)"},
    {11186, "Some background operations haven't finished yet.\nShall we wait for them?"},
    {11240, "audio files"},
    {11241, "video files"},
    {11242, "documents"},
    {11243, "pictures"},
    {11244, "program files"},
    {11245, "source code"},
    {11246, "temp files"},
    {11247, "web files"},
    {11257, "You haven't checked for program updates for some time.\nGo online to check for a new version now?"},
    {11322, "For faster searches add your document folders in the windows search index\nYou can add folders using Control Panel (Indexing options)"},
    {11326, "And [&]"},
    {11327, "Or [|]"},
    {11328, "Exclusive or [^]"},
    {11329, "Not [!]"},
    {11330, "Equal [=]"},
    {11331, "Not equal [!=]"},
    {11332, "Approximate [~]"},
    {11333, "At least [>=]"},
    {11334, "At most [<=]"},
    {11335, "Add [+]"},
    {11336, "Subtract [-]"},
    {11337, "Multiply [*]"},
    {11338, "Divide [/]"},
    {11339, "Remainder [%]"},
    {11340, "Brackets [( )]"},
    {11341, "Sample wildcard ['*.*']"},
    {11342, "Boolean TRUE [-1]"},
    {11343, "File property [$]"},
    {11357, "The same parameters are saved under name: %1\nDo you want to create another copy?"},
    {11365, "String length [len()]"},
    {11366, "Extract string [mid( , , )]"},
    {11367, "Trim space [trim()]"},
    {11368, "Find in string [find( , )]"},
    {11369, "Date part [dpart( , )]"},
    {11370, "Minimum [min( , )]"},
    {11371, "Maximum [max( , )]"},
    {11372, "Absolute value [abs()]"},
    {11373, "Convert to string [str()]"},
    {11374, "Find in file [grep()]"},
    {11382, "Location name (optional)"},
    {12035, "Whether item is a plain file or directory (folder)"},
    {12500, "Signed by"},
    {12501, "Authenticode digital signature of executable file, verifying program creator"},
    {12502, "Attributes"},
    {12503, "File attributes (Archive, Read-only, Hidden etc)"},
    {12504, "Infotip"},
    {12505, "Extended file type specific information, showing as tooltip text"},
    {12506, "Folder"},
    {12508, "Type"},
    {12509, "Customizable kind using file extension wildcards"},
    {12510, "Find"},
    {12511, "Search all common text properties (name, contents, author etc)"},
    {12512, "Complex"},
    {12513, "Free form expression where file properties can be combined with boolean and arithmetic operators"},
    {12514, "Size on disk"},
    {12515, "Actual disk space occupied, accounting for parallel streams and compressed/sparse attributes"},
    {12516, "Streams"},
    {12517, "Number of NTFS alternate data streams"},
    {12518, "Stream names"},
    {12519, "List of (any) named parallel streams"},
    {12520, "Folder contents"},
    {12521, "Number of items in a folder that match a type or a complex filter"},
    {12522, "Online"},
    {12523, "Whether the item's drive is mounted; an item of a drive that is not comes from the index"},
    {32811, "Clear all"},
    {32858, "Show selected picture item on the map"},
    {32901, "Show all items"},
};

}  // namespace

std::string_view LoadString(uint32_t id) {
  auto it = std::lower_bound(std::begin(kStrings), std::end(kStrings), id,
                             [](const Entry& e, uint32_t v) { return e.id < v; });
  return it != std::end(kStrings) && it->id == id ? it->text : std::string_view();
}

}  // namespace trovix::base

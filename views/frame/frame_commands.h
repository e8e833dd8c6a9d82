// The main frame's commands: identifiers and texts. A tip's part before "\n" is the status-bar
// text, the part after it the tool tip; a tip without "\n" is both.
#pragma once

#include <cstdint>

namespace trovix::views {

enum FrameCommand : uint32_t {
  kCmdSettings = 32790,
  kCmdHelp = 32801,
  kCmdClearAll = 32811,
  kCmdDefaultRules = 32812,
  kCmdSaveSearch = 32813,
  kCmdPreview = 32814,
  kCmdRemoveRule = 32815,
  kCmdAddRule = 32821,
  kCmdSimpleMode = 32827,
  kCmdDetective = 32846,
  kCmdPictureMap = 32855,
  kCmdAdvancedSearch = 32900,
  kCmdRate = 33020,
  kCmdNextPane = 57680,
  kCmdPreviousPane = 57681,
  kCmdExit = 57665,
};

struct ToolCommand {
  uint32_t id;
  const char* tip;
  const char* theme_icon;  // from the desktop's icon theme, when it has one
  // The text in the menus, with its mnemonic; the tool bar shows it without the "&".
  const char* menu_text;
};

// The tool bar, in its order.
inline constexpr ToolCommand kToolBar[] = {
    {kCmdSaveSearch, "Save search parameters for repeating in the future\nSave search",
     "document-save", "&Save search..."},
    {kCmdHelp, "Consult the documentation\nHelp (F1)", "help-contents", "&Help"},
    {kCmdDefaultRules, "Reset to default search parameters\nDefault rules", "edit-undo",
     "&Default rules"},
    {kCmdPreview, "Preview", "document-preview", "&Preview"},
    {kCmdRemoveRule, "Close rule\nRemove", "list-remove", "&Remove rule"},
    {kCmdAdvancedSearch, "Advanced search", "preferences-other", "Ad&vanced search"},
    {kCmdClearAll, "Clear all search filters\nClear all (F8)", "edit-clear", "&Clear all"},
    {kCmdSettings, "Adjust program settings and preferences\nSettings (F12)", "preferences-system",
     "&Settings..."},
    {kCmdAddRule, "Add new search property\nAdd rule", "list-add", "&Add rule"},
    {kCmdSimpleMode, "Toggle plain search mode on/off\nSimple mode", "view-list-text",
     "Si&mple mode"},
    {kCmdDetective, "Desktop detective", "system-search", "Desktop &detective"},
    {kCmdPictureMap, "Find pictures by location using embedded geotags\nPicture map",
     "applications-internet", "&Picture map"},
    {kCmdRate, "Spread the word about this program\nRate", "emblem-favorite", "&Rate"},
};

}  // namespace trovix::views

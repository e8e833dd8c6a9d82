#include "props/catalogue_filters.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace trovix::props {
namespace {

// Group prefixes never offered in the filtered catalogue, ascending by code unit.
constexpr std::string_view kExcludedPrefixes[] = {
    "Microsoft.IE.", "System.Actions.", "System.AppContract.", "System.AppUserModel.",
    "System.Calendar.", "System.Communication.", "System.Computer.", "System.ConnectedSearch.",
    "System.Contact.", "System.ControlPanel.", "System.Device.", "System.DeviceInterface.",
    "System.Devices.", "System.Extensions.", "System.Fonts.", "System.Game.", "System.Generic.",
    "System.History.", "System.Home.", "System.Identity.", "System.IdentityProvider.",
    "System.Journal.", "System.LOGON.", "System.Launcher.", "System.LayoutPattern.",
    "System.LzhFolder.", "System.Message.", "System.Note.", "System.OfflineFiles.",
    "System.PROFILE.", "System.PrintStatus.", "System.Printer.", "System.PropGroup.",
    "System.PropList.", "System.Protocol.", "System.RecordedTV.", "System.SAM.",
    "System.ScanStatus.", "System.Search.", "System.SecondaryTile.", "System.Security.",
    "System.Setting.", "System.ShareTarget.", "System.Shell.", "System.Software.NullPreview.",
    "System.StartMenu.", "System.Storage.", "System.StructuredQuery.", "System.Sync.",
    "System.Task.", "System.Taskbar.", "System.Tile.", "System.Winx.", "System.Wireless.",
    "System.ZipFolder.",
};

// Single names never offered, ascending in linguistic order.
constexpr std::string_view kFirstExclusions[] = {
    "System.AcquisitionID", "System.CachedFileUpdaterContentIdForConflictResolution",
    "System.CachedFileUpdaterContentIdForStream", "System.ChapterId", "System.CheckState",
    "System.ContentStatus", "System.ContentUrl", "System.CreatorOpenWithUIOptions",
    "System.DataObjectFormat", "System.DefaultSaveLocationDisplay", "System.DelegationFlags",
    "System.DuiControlResource", "System.FileAllocationSize", "System.FileAttributes",
    "System.FileAttributesDisplay", "System.FileName", "System.FilePlaceholderStatus",
    "System.FolderNameDisplay", "System.ForceFullText", "System.FullText",
    "System.HasLeafContainers", "System.HasNoAdditionalProperties", "System.HideInGrepSearch",
    "System.HideOnDesktop", "System.HomeGroupSharingStatus", "System.IconIndex", "System.IconPath",
    "System.IconSecondaryStreamName", "System.ImageParsingName", "System.InfoTipText",
    "System.InvalidPathValue", "System.IsAttachment", "System.IsBarricadePage",
    "System.IsDefaultNonOwnerSaveLocation", "System.IsDefaultSaveLocation",
    "System.IsDefaultSaveLocationForDisplay", "System.IsDeleted", "System.IsGroup",
    "System.IsIncomplete", "System.IsLocationSupported", "System.IsPinnedToNameSpaceTree",
    "System.IsRead", "System.IsSearchOnlyItem", "System.IsSendToTarget", "System.IsSimpleItem",
    "System.ItemFolderPathDisplayNarrow", "System.ItemName", "System.ItemNameSortOverride",
    "System.ItemPathDisplayNarrow", "System.ItemSearchLocationHeaderType", "System.ItemType",
    "System.LastSyncError", "System.LibraryLocationsCount", "System.LibraryLocationsList",
    "System.LibraryLocationSupportStatus", "System.Link.FeedItemLocalId",
    "System.Link.TargetSFGAOFlags", "System.Link.TargetSFGAOFlagsStrings",
    "System.Link.TargetUrlHostName", "System.Link.TargetUrlPath", "System.ListDescription",
    "System.MaxStackCount", "System.Media.ClassPrimaryID", "System.Media.ClassSecondaryID",
    "System.Media.CollectionGroupID", "System.Media.CollectionID",
    "System.Media.ThumbnailLargePath", "System.Media.ThumbnailLargeUri",
    "System.Media.ThumbnailSmallPath", "System.Media.ThumbnailSmallUri",
    "System.Music.AlbumArtistSortOverride", "System.Music.AlbumTitleSortOverride",
    "System.Music.ArtistSortOverride", "System.Music.BeatsPerMinute",
    "System.Music.ComposerSortOverride", "System.NewMenuAllowedTypes",
    "System.NewMenuPreferredTypes", "System.NotUserContent", "System.ParsingName",
    "System.ParsingPath", "System.PerceivedType", "System.Platform", "System.ResultSourceId",
    "System.ResultType", "System.SDID", "System.SFGAOFlags", "System.ShareScope",
    "System.StatusBarItemAvailability", "System.StatusBarSelectedItemCount",
    "System.StatusBarStorageProviderError", "System.StatusBarViewItemCount",
    "System.StorageProviderDescendantSharingStatus", "System.StorageProviderError",
    "System.StorageProviderFileIdentifier", "System.StorageProviderFileRemoteUri",
    "System.StorageProviderFileVersion", "System.StorageProviderId",
    "System.StorageProviderShareStatuses", "System.StorageProviderSharingStatus",
    "System.StorageProviderStatus", "System.StorageProviderThumbnailDimensions",
    "System.SyncTransferStatus", "System.ThumbnailCacheId", "System.ThumbnailCacheIdParts",
    "System.TitleSortOverride", "System.TransferOrder", "System.TransferPosition",
    "System.TransferSize", "System.UrlHostName", "System.UrlScheme", "System.UserDisplayName",
    "System.UserName", "System.UserProfilePath", "System.VerbRestrictions",
    "System.Volume.BitLockerCanChangePassphraseByProxy", "System.Volume.BitLockerCanChangePin",
    "System.Volume.BitLockerRequiresAdmin", "System.WebPreviewUrl", "System.WhichFolder",
    "System.WordWheel", "System.ZoneIdentifier",
};

// A second list of names never offered, ascending in linguistic order. "System.DateCompl" is
// kept short as it stands: it excludes only a property of exactly that name.
constexpr std::string_view kSecondExclusions[] = {
    "System.Capacity", "System.Category", "System.ComputerName", "System.DateAcquired",
    "System.DateCompl", "System.DueDate", "System.EndDate", "System.FileCount", "System.FileIndex",
    "System.FlagColor", "System.FlagColorText", "System.FlagStatus", "System.FlagStatusText",
    "System.FreeSpace", "System.HighKeywords", "System.Identity", "System.Importance",
    "System.ImportanceText", "System.IsFlaggedComplete", "System.ItemClassType",
    "System.ItemNamePrefix", "System.ItemSearchLocation", "System.ItemUrl", "System.LowKeywords",
    "System.MediumKeywords", "System.NetworkPlacesDefaultName", "System.NetworkProvider",
    "System.Order", "System.OwnerSID", "System.ParentalRatingReason",
    "System.ParentalRatingsOrganization", "System.PercentFull", "System.Priority",
    "System.PriorityText", "System.Project", "System.ProviderItemID", "System.Sensitivity",
    "System.SensitivityText", "System.ShareUserRating", "System.SoftwareUsed", "System.SourceItem",
    "System.StartDate", "System.Status", "System.StorageSystemType", "System.TotalFileSize",
    "System.Trademarks", "System.TransferPath", "System.Volume.BitLockerProtection",
    "System.Volume.FileSystem", "System.Volume.IsMappedDrive", "System.Volume.IsRoot",
    "System.WebDavPath",
};

// The lists are kept ascending in linguistic order (ICU's root collation at tertiary strength,
// the order they were made in, which the tests check). There these ASCII names compare equal
// only when their bytes do, so membership is plain byte equality, needing no collator: it is
// asked of a copy in byte order, sorted by the compiler, by binary search.
template <size_t N>
constexpr std::array<std::string_view, N> ByteOrdered(const std::string_view (&list)[N]) {
  std::array<std::string_view, N> sorted{};
  std::copy(std::begin(list), std::end(list), sorted.begin());
  std::sort(sorted.begin(), sorted.end());
  return sorted;
}
constexpr auto kFirstExclusionsSorted = ByteOrdered(kFirstExclusions);
constexpr auto kSecondExclusionsSorted = ByteOrdered(kSecondExclusions);

template <size_t N>
bool Holds(const std::array<std::string_view, N>& sorted, std::string_view name) {
  return std::binary_search(sorted.begin(), sorted.end(), name);
}

// Every prefix ends at a period, so a name can only have one that ends at one of its own.
constexpr bool EveryPrefixEndsInAPeriod() {
  for (std::string_view prefix : kExcludedPrefixes)
    if (!prefix.ends_with('.')) return false;
  return true;
}
static_assert(EveryPrefixEndsInAPeriod(), "HasExcludedPrefix looks prefixes up by the name's periods");

}  // namespace

bool HasExcludedPrefix(std::string_view name) {
  for (size_t dot = name.find('.'); dot != std::string_view::npos; dot = name.find('.', dot + 1))
    if (std::binary_search(std::begin(kExcludedPrefixes), std::end(kExcludedPrefixes), name.substr(0, dot + 1)))
      return true;
  return false;
}

bool IsInFirstExclusionList(std::string_view name) { return Holds(kFirstExclusionsSorted, name); }
bool IsInSecondExclusionList(std::string_view name) { return Holds(kSecondExclusionsSorted, name); }

bool IsForcedName(std::string_view name) {
  return name == "System.GPS.Latitude" || name == "System.GPS.Longitude" ||
         name == "System.Search.Contents";
}

bool PassesNameFilters(std::string_view name) {
  if (IsForcedName(name)) return true;
  if (HasExcludedPrefix(name) || IsInFirstExclusionList(name) || IsInSecondExclusionList(name))
    return false;
  // The halves of a fraction whose computed whole is offered as a property of its own.
  return name.find("Numerator") == std::string_view::npos &&
         name.find("Denominator") == std::string_view::npos;
}

bool PassesTypeRule(uint32_t vartype, bool forced) {
  uint32_t base = vartype & 0x0FFF;
  if (vartype & (0x2000 | 0x4000)) return false;  // arrays and by-reference values
  if (base == 0 || base == 1 || base == 9 || base == 12 || base == 13 || base > 64) return false;
  if (vartype & 0x1000) return base == 31 || forced;
  return true;
}

std::vector<std::string_view> ExcludedPrefixesForTesting() {
  return {std::begin(kExcludedPrefixes), std::end(kExcludedPrefixes)};
}
std::vector<std::string_view> ExclusionListForTesting(int which) {
  if (which == 1) return {std::begin(kFirstExclusions), std::end(kFirstExclusions)};
  return {std::begin(kSecondExclusions), std::end(kSecondExclusions)};
}

}  // namespace trovix::props

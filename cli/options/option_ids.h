// The numbers by which the parsers of trovix-cli tell options apart (OptionSpec::id).
#pragma once

namespace trovix::cli {

enum OptionId : int {
  // Every command.
  kOptHelp,
  kOptVersion,
  kOptSettings,
  kOptGenerate,
  kOptIndex,
  // search and explain: rules.
  kOptRule,
  kOptExpression,
  kOptRulesFile,
  kOptSaved,
  kOptLiteral,
  kOptShowRules,
  kOptNoWarnings,
  // search: the habits of fd.
  kOptType,
  kOptExtension,
  kOptSize,
  kOptChangedWithin,
  kOptChangedBefore,
  // search: where and how far to walk.
  kOptRoots,
  kOptHidden,
  kOptFollowLinks,
  kOptNoSubfolders,
  kOptMaxDepth,
  kOptMinDepth,
  kOptExclude,
  kOptIgnoreVcs,
  kOptOneFileSystem,
  kOptVirtualFolders,
  kOptThreads,
  kOptOrdered,
  kOptAnswerTimeout,
  // search: contents.
  kOptExcludeTypes,
  kOptMaxExtractSize,
  kOptSearchZip,
  // search: output.
  kOptNull,
  kOptJson,
  kOptColumns,
  kOptSort,
  kOptDesc,
  kOptLimit,
  kOptQuiet,
  kOptColor,
  kOptProgress,
  kOptNoMessages,
  kOptExec,
  kOptExecBatch,
  // props, text, saved, settings.
  kOptAll,
  kOptExcerpt,
  kOptTerm,
  kOptRoot,
  kOptCopy,
  kOptRaw,
  // index; search --robust.
  kOptRobust,
  kOptNamesOnly,
  // search: the index's catalogues of drives that are not mounted.
  kOptOffline,
  // search: an NTFS image read directly.
  kOptVolumeImage,
  // search: pictures shot in a map area.
  kOptArea,
  // index update and watch: what they may take of the machine.
  kOptBudget,
  kOptNormalPriority,
};

}  // namespace trovix::cli

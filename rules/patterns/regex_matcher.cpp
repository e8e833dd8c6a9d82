#define PCRE2_CODE_UNIT_WIDTH 8
#include "rules/patterns/regex_matcher.h"

#include <pcre2.h>

#include "rules/patterns/folding.h"

namespace trovix::rules::detail {
namespace {

// Bounds of one match. A name or a property text needs a tiny fraction of them; a pattern that
// needs more on a value is backtracking without hope and is stopped as "no match".
constexpr uint32_t kMatchLimit = 1'000'000;
constexpr uint32_t kDepthLimit = 10'000;
constexpr uint32_t kHeapLimitKiB = 64 * 1024;

// One ovector pair is enough: only the whole match's range is ever read.
class ThreadMatchData {
 public:
  ThreadMatchData() : data_(pcre2_match_data_create(1, nullptr)) {}
  ~ThreadMatchData() { pcre2_match_data_free(data_); }
  pcre2_match_data* get() const { return data_; }

 private:
  pcre2_match_data* data_;
};


}  // namespace

std::unique_ptr<RegexMatcher> RegexMatcher::Compile(std::string_view pattern, bool caseless,
                                                    bool whole_value, std::string* error) {
  uint32_t options = PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF;
  if (caseless) options |= PCRE2_CASELESS;
  // Anchoring by option, not by wrapping the text in "^(?:...)$": a wrapper would let an
  // unbalanced pattern such as "a)|(b" compile with a different meaning.
  if (whole_value) options |= PCRE2_ANCHORED | PCRE2_ENDANCHORED;
  int code = 0;
  PCRE2_SIZE offset = 0;
  pcre2_code* compiled = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                                       options, &code, &offset, nullptr);
  if (compiled == nullptr) {
    if (error != nullptr) {
      PCRE2_UCHAR message[256];
      if (pcre2_get_error_message(code, message, sizeof message) < 0) message[0] = 0;
      *error = "Bad regular expression at position " +
               std::to_string(CharPosition(pattern, offset)) + ": " +
               reinterpret_cast<const char*>(message);
    }
    return nullptr;
  }
  // Without JIT (unsupported CPU, no executable memory) the interpreter does the same job.
  pcre2_jit_compile(compiled, PCRE2_JIT_COMPLETE);

  std::unique_ptr<RegexMatcher> matcher(new RegexMatcher);
  matcher->code_ = compiled;
  matcher->context_ = pcre2_match_context_create(nullptr);
  if (matcher->context_ != nullptr) {
    pcre2_set_match_limit(matcher->context_, kMatchLimit);
    pcre2_set_depth_limit(matcher->context_, kDepthLimit);
    pcre2_set_heap_limit(matcher->context_, kHeapLimitKiB);
  }
  return matcher;
}

RegexMatcher::~RegexMatcher() {
  pcre2_match_context_free(context_);
  pcre2_code_free(code_);
}

bool RegexMatcher::Find(std::string_view value, MatchRange* hit) const {
  thread_local ThreadMatchData match_data;
  if (match_data.get() == nullptr) return false;
  const int rc = pcre2_match(code_, reinterpret_cast<PCRE2_SPTR>(value.data()), value.size(), 0, 0,
                             match_data.get(), context_);
  // rc == 0 means the ovector was too small for the groups, but the match itself is there.
  // Negative values are "no match" or a limit that was hit: both count as no match.
  if (rc < 0) return false;
  if (hit != nullptr) {
    const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(match_data.get());
    hit->offset = ovector[0];
    // \K can put the start after the end; show nothing rather than a wrapped length.
    hit->length = ovector[1] >= ovector[0] ? ovector[1] - ovector[0] : 0;
  }
  return true;
}

}  // namespace trovix::rules::detail

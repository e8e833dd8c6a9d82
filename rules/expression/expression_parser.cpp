// The syntax check of an expression's token list. It walks the tokens once with a state that
// says whether an operand or an operator is due, and a stack of open brackets; function
// arities and the single grep are checked afterwards, so that a plain syntax error anywhere
// is reported before a wrong argument count.

#include <vector>

#include "rules/expression/expression_internal.h"

namespace trovix::rules::expr {
namespace {

struct OpenBracket {
  size_t token;       // index of the "("
  int32_t function;   // function code, or -1 for a plain bracket
  size_t function_token;
  int commas;
};

struct Call {
  size_t token;
  int32_t function;
  int commas;
};

}  // namespace

int32_t CheckSyntax(std::vector<LexToken>& tokens, size_t text_size, size_t* error_pos) {
  auto fail = [error_pos](int32_t code, size_t pos) {
    *error_pos = pos;
    return code;
  };

  std::vector<OpenBracket> open;
  std::vector<Call> calls;
  bool operand_due = true;  // as if just after "("
  int32_t pending_function = -1;
  size_t pending_token = 0;

  for (size_t i = 0; i < tokens.size(); ++i) {
    LexToken& t = tokens[i];
    const int32_t code = t.code;
    if (pending_function >= 0) {
      if (code != kOpen) return fail(kExprUnexpectedToken, t.pos);
      if (open.size() >= static_cast<size_t>(Expression::kMaxNesting)) return fail(kExprUnexpectedToken, t.pos);
      open.push_back({i, pending_function, pending_token, 0});
      pending_function = -1;
      continue;  // an operand is still due
    }
    if (operand_due) {
      if (code < 0) {
        operand_due = false;
      } else if (code == kOpen) {
        if (open.size() >= static_cast<size_t>(Expression::kMaxNesting))
          return fail(kExprUnexpectedToken, t.pos);
        open.push_back({i, -1, 0, 0});
      } else if (code == kNot || code == kNeg || code == kPos) {
        // stays in operand position
      } else if (code == kAdd) {
        t.code = kPos;
      } else if (code == kSub) {
        t.code = kNeg;
      } else if (IsFunction(code)) {
        pending_function = code;
        pending_token = i;
      } else {
        return fail(kExprUnexpectedToken, t.pos);
      }
      continue;
    }
    // An operator is due.
    if (code == kClose) {
      if (open.empty()) return fail(kExprUnbalancedBracket, t.pos);
      const OpenBracket& b = open.back();
      if (b.function >= 0) calls.push_back({b.function_token, b.function, b.commas});
      open.pop_back();
    } else if (code == kComma) {
      // A comma separates the arguments of a call; anywhere else it is out of place.
      if (open.empty() || open.back().function < 0) return fail(kExprUnexpectedToken, t.pos);
      ++open.back().commas;
      operand_due = true;
    } else if (IsBinaryOperator(code)) {
      operand_due = true;
    } else {
      return fail(kExprUnexpectedToken, t.pos);
    }
  }

  if (!open.empty()) return fail(kExprUnbalancedBracket, tokens[open.front().token].pos);
  if (operand_due || pending_function >= 0) {
    size_t pos = tokens.empty() ? text_size : tokens.back().pos;
    return fail(kExprUnexpectedToken, pos);
  }

  // Calls were recorded as they closed; report the first faulty one in text order.
  std::vector<bool> bad(tokens.size(), false);
  for (const Call& call : calls)
    if (call.commas + 1 != FunctionOf(call.function).arity) bad[call.token] = true;
  bool seen_grep = false;
  for (size_t i = 0; i < tokens.size(); ++i) {
    if (tokens[i].code == kGrep) {
      if (seen_grep) bad[i] = true;
      seen_grep = true;
    }
    if (bad[i]) return fail(kExprWrongArgument, tokens[i].pos);
  }

  tokens.push_back({kEnd, text_size});
  return kExprNoError;
}

}  // namespace trovix::rules::expr

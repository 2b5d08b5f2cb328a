// Search expressions. The first byte holds the options, then come the line searched, a line feed
// and the expression.
#include "checks/log/exprparser.h"
#include "fuzz.h"

namespace {

/// The search as it is defined: token by token, each text looked up by itself.
int SearchPlainly(const String& line, String expression, int caseSensitive, int wholeWord) {
  TExprParser parser(PriorityTable1, sizeof PriorityTable1);
  if (parser.Expr2Polish(expression, 0) == 0) return 0;
  const TStrList& tokens = parser.Output();
  BoolStack stack(tokens.Count() + 2);
  for (int i = 0; i < tokens.Count(); ++i) {
    const String token = tokens[i];
    if (token == "not") {
      stack.Not();
    } else if (token == "or") {
      stack.Or();
    } else if (token == "and") {
      stack.And();
    } else {
      const String text = token.Copy(2, token.Length() - 2);
      stack.Push(line.Search(text, caseSensitive, wholeWord) >= 1 ? 1 : 0);
    }
  }
  return !stack.Failed() && stack.Count() == 1 ? stack.Pop() : 0;
}

void TakeTokens(String expression) {
  TExprParser parser(PriorityTable2, sizeof PriorityTable2);
  while (!expression.Empty()) {
    const int before = expression.Length();
    if (parser.GetToken(expression).Empty()) break;
    Require(expression.Length() < before, "a token is taken off the front");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const String text = ToString(data + 1, size - 1);
  const int split = text.Pos('\n');
  const String line = text.Copy(1, split - 1);
  const String expression = text.Copy(split + 1, text.Length());
  const int caseSensitive = data[0] & 1;
  const int wholeWord = data[0] & 2;
  Require(SearchForExpression(line, expression, caseSensitive, wholeWord) ==
              SearchPlainly(line, expression, caseSensitive, wholeWord),
          "the prepared search finds what the plain one does");
  TakeTokens(expression);
  return 0;
}

#include "client/commands.h"

#include <algorithm>

bool TCommand::NeedsNothing() const {
  return std::all_of(params.begin(), params.end(),
                     [](const TParam& param) { return param.preset != nullptr; });
}

static std::vector<TCommand> AllRows() {
  std::vector<TCommand> rows;
  for (auto* part : {&FileRows, &SystemRows, &UnsupportedRows}) {
    for (TCommand& row : part()) rows.push_back(std::move(row));
  }
  return rows;
}

const std::vector<TCommand>& Commands() {
  static const std::vector<TCommand> rows = AllRows();
  return rows;
}

const TCommand* FindCommand(const std::string& name) {
  for (const TCommand& row : Commands()) {
    if (name == row.name) return &row;
  }
  return nullptr;
}

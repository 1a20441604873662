#pragma once

#include <QString>

namespace qs {

/// The symbol of a vault folder in the sidebar, from its name. The tests are deliberately
/// blunt substring tests, so that any name holding "bin" counts as trash.
QString folderSymbol(const QString& name);

/// The symbol of an account row: "square.and.arrow.down" for "Imported", "exclamationmark.circle"
/// for a configured account with a problem in the last run, else "archivebox".
QString accountSymbol(const QString& name, bool hasProblem);

} // namespace qs

// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "trace_p.h"

Q_LOGGING_CATEGORY(lcKavro, "kavro")

namespace Kavro
{

void writeTrace(int flag, const char *file, int line, const char *function, const QString &text)
{
    const QMessageLogger logger(file, line, function);
    if (flag == ErrorHandler::TraceInfo)
        logger.debug(lcKavro).noquote() << text;
    else
        logger.warning(lcKavro).noquote() << text;
}

} // namespace Kavro

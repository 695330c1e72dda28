// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "translations_p.h"

#include <QCoreApplication>
#include <QMutex>
#include <QTranslator>

#include <memory>

namespace Kavro
{
namespace Translations
{

namespace
{
QMutex s_mutex;
std::unique_ptr<QTranslator> s_translator;

void removeLocked()
{
    if (s_translator) {
        QCoreApplication::removeTranslator(s_translator.get());
        s_translator.reset();
    }
}
} // namespace

bool install(const QLocale &locale)
{
    const QMutexLocker locker(&s_mutex);
    removeLocked();
    auto translator = std::make_unique<QTranslator>();
    if (!translator->load(locale, QStringLiteral("kavroclient"), QStringLiteral("_"), QStringLiteral(":/kavro/i18n")))
        return false;
    if (!QCoreApplication::installTranslator(translator.get()))
        return false;
    s_translator = std::move(translator);
    return true;
}

void remove()
{
    const QMutexLocker locker(&s_mutex);
    removeLocked();
}

QString translate(const char *sourceText)
{
    return QCoreApplication::translate("QObject", sourceText);
}

} // namespace Translations
} // namespace Kavro

// Installs the catalogue of the system locale as soon as the application exists.
static void kavroInstallTranslations()
{
    Kavro::Translations::install(QLocale());
    qAddPostRoutine(Kavro::Translations::remove);
}
Q_COREAPP_STARTUP_FUNCTION(kavroInstallTranslations)

// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_KAVROFILEDIALOG_H
#define KAVRO_KAVROFILEDIALOG_H

#include <kavro/kavrotypes.h>
#include <kavro/kavrourl.h>
#include <kavro/kavrowidgets_export.h>

#include <QCoreApplication>
#include <QVector>

#include <memory>

class QWidget;

namespace Kavro
{

class KavroClient;
class KavroFile;

/*!
 * \brief Lets the user pick an archived file, the way QFileDialog picks a local one.
 *
 * \code
 * const Kavro::KavroUrl url = Kavro::KavroFileDialog::GetOpenUrl(this, tr("Open drawing"), QString(), QString(),
 *                                                                &client, {Kavro::FileTypeTechnicalParameters});
 * \endcode
 */
class KAVROWIDGETS_EXPORT KavroFileDialog
{
    Q_DECLARE_TR_FUNCTIONS(Kavro::KavroFileDialog)

public:
    //! Options, combined in the last argument.
    enum Option {
        NoOption = 0,
        EditQueryFirst = 0x1, //!< open the query editor before the first search
    };

    /*!
     * Runs FileSelectDialog with the button "Open" and the title \a caption.
     * \a directory, where given, is the group-name text searched for (the
     * archive's groups take the place of directories); \a filter, where
     * given, fills the dialog's filter field. Only groups of \a fileTypes are
     * searched (empty: every listed type). The chosen file, not yet opened;
     * null when the user cancelled.
     */
    static std::shared_ptr<KavroFile> GetOpenFile(QWidget *parent, const QString &caption, const QString &directory,
                                                  const QString &filter, KavroClient *client,
                                                  const QVector<FileType> &fileTypes, int options = NoOption);
    //! As GetOpenFile(), the chosen file's URL; empty when the user cancelled.
    static KavroUrl GetOpenUrl(QWidget *parent, const QString &caption, const QString &directory, const QString &filter,
                               KavroClient *client, const QVector<FileType> &fileTypes, int options = NoOption);
};

} // namespace Kavro

#endif

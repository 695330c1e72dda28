// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_KAVROSAVEASDLG_H
#define KAVRO_KAVROSAVEASDLG_H

#include <kavro/kavrourl.h>
#include <kavro/kavrowidgets_export.h>

#include <QDialog>

#include <memory>

namespace Kavro
{

class KavroClient;
class KavroSaveAsDlgPrivate;

/*!
 * \brief Saves a local file into the archive as a new file group, described by the user.
 *
 * The user names the group and gives its file type, version, detail,
 * comment and life cycle in days; saving creates the group and adds the file
 * through KavroFile. Until that succeeds the dialog stays open and says what
 * went wrong.
 *
 * \code
 * Kavro::KavroSaveAsDlg dialog(&client, QStringLiteral("/home/me/report.pdf"), this);
 * if (dialog.Execute())
 *     qDebug() << "archived as" << dialog.GetUrl().toString();
 * \endcode
 */
class KAVROWIDGETS_EXPORT KavroSaveAsDlg : public QDialog
{
    Q_OBJECT

public:
    //! A dialog saving \a localFile through \a client; with an empty name the user picks the file.
    explicit KavroSaveAsDlg(KavroClient *client, const QString &localFile = QString(), QWidget *parent = nullptr);
    ~KavroSaveAsDlg() override;
    Q_DISABLE_COPY_MOVE(KavroSaveAsDlg)

    //! Runs the dialog; true when the file was archived.
    bool Execute();
    //! The archived file as "kavro:///<guid>/<file id>"; empty until saved.
    KavroUrl GetUrl() const;

public Q_SLOTS:
    //! Archives the file as described; accepts the dialog when that succeeds.
    void accept() override;
    void done(int result) override;

private:
    const std::unique_ptr<KavroSaveAsDlgPrivate> d;
};

} // namespace Kavro

#endif

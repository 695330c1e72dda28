// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/kavrofiledialog.h>

#include <kavro/filequery.h>
#include <kavro/fileselectdialog.h>
#include <kavro/kavrofile.h>

namespace Kavro
{

KavroUrl KavroFileDialog::GetOpenUrl(QWidget *parent, const QString &caption, const QString &directory,
                                     const QString &filter, KavroClient *client, const QVector<FileType> &fileTypes,
                                     int options)
{
    FileSelectDialog dialog(client, tr("Open"), false, fileTypes, parent);
    if (!caption.isEmpty())
        dialog.setWindowTitle(caption);
    if (!directory.isEmpty()) {
        FileQuery query = dialog.GetQuery();
        query.SetFileGroupSearchText(directory);
        dialog.SetQuery(query);
    }
    dialog.SetFilterText(filter);
    if (options & EditQueryFirst)
        dialog.EditQuery();
    return dialog.Execute() ? dialog.GetUrl() : KavroUrl();
}

std::shared_ptr<KavroFile> KavroFileDialog::GetOpenFile(QWidget *parent, const QString &caption,
                                                        const QString &directory, const QString &filter,
                                                        KavroClient *client, const QVector<FileType> &fileTypes,
                                                        int options)
{
    const KavroUrl url = GetOpenUrl(parent, caption, directory, filter, client, fileTypes, options);
    if (url.isEmpty())
        return nullptr;
    return std::make_shared<KavroFile>(client, url.toKavroGuid(), url.toKavroFileId());
}

} // namespace Kavro

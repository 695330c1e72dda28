// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// KavroClient's file choosers live here, in Kavro::Widgets, so that the core library links no widgets.
#include <kavro/kavroclient.h>

#include <kavro/fileselectdialog.h>

namespace Kavro
{

bool KavroClient::GetSelectedFile(QWidget *parent, const QString &caption, KavroUrl &url)
{
    FileSelectDialog dialog(this, tr("Ok"), false, QVector<FileType>(), parent);
    if (!caption.isEmpty())
        dialog.setWindowTitle(caption);
    const bool chosen = dialog.Execute();
    if (chosen)
        url = dialog.GetUrl();
    return chosen;
}

bool KavroClient::GetSelectedFile(QWidget *parent, const QString &caption, QString &guid, unsigned int &fileId)
{
    KavroUrl url;
    if (!GetSelectedFile(parent, caption, url))
        return false;
    guid = url.toKavroGuid();
    fileId = url.toKavroFileId();
    return true;
}

} // namespace Kavro

// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/fileselectdialog.h>

#include <kavro/clienttreemodel.h>
#include <kavro/filegroupdata.h>
#include <kavro/filegroupsortmodel.h>
#include <kavro/filegrouptreeitem.h>
#include <kavro/filequery.h>
#include <kavro/kavroclient.h>
#include <kavro/kavroreply.h>
#include <kavro/querydialog.h>

#include "dialogsettings_p.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTreeView>
#include <QVBoxLayout>

namespace Kavro
{

namespace
{
const QString s_headerKey = QStringLiteral("FileSelectDialog/Header");
} // namespace

class FileSelectDialogPrivate
{
public:
    FileSelectDialogPrivate(FileSelectDialog *dialog, KavroClient *client, const QVector<FileType> &fileTypes)
        : q(dialog)
        , client(client)
        , fileTypes(fileTypes)
        , model(new ClientTreeModel(client, dialog))
        , proxy(new FileGroupSortModel(dialog))
    {
    }

    void setUpWidgets(const QString &acceptText, bool multipleSelection);
    //! The query with its types narrowed to the dialog's: every allowed type where it names none of them.
    FileQuery restricted(const FileQuery &wanted) const;
    void showGroups(const QList<FileGroupData> &groups);
    void selectionChanged();
    bool isFileRow(const QModelIndex &index) const { return index.isValid() && index.parent().isValid(); }

    FileSelectDialog *const q;
    KavroClient *const client;
    const QVector<FileType> fileTypes;
    FileQuery query;
    ClientTreeModel *const model;
    FileGroupSortModel *const proxy;
    QLineEdit *filterEdit = nullptr;
    QTreeView *tree = nullptr;
    QLabel *statusLabel = nullptr;
    QPushButton *acceptButton = nullptr;
    QPointer<KavroReply> queryReply;
    QList<KavroUrl> chosen;
    bool headerRestored = false;
};

void FileSelectDialogPrivate::setUpWidgets(const QString &acceptText, bool multipleSelection)
{
    filterEdit = new QLineEdit(q);
    filterEdit->setObjectName(QStringLiteral("filterEdit"));
    filterEdit->setPlaceholderText(FileSelectDialog::tr("Text in any column"));
    filterEdit->setClearButtonEnabled(true);
    auto *filterLabel = new QLabel(FileSelectDialog::tr("&Filter:"), q);
    filterLabel->setBuddy(filterEdit);
    auto *queryButton = new QPushButton(FileSelectDialog::tr("&Query..."), q);
    queryButton->setObjectName(QStringLiteral("queryButton"));
    queryButton->setAutoDefault(false);
    auto *refreshButton = new QPushButton(FileSelectDialog::tr("&Refresh"), q);
    refreshButton->setObjectName(QStringLiteral("refreshButton"));
    refreshButton->setAutoDefault(false);
    auto *top = new QHBoxLayout;
    top->addWidget(filterLabel);
    top->addWidget(filterEdit, 1);
    top->addWidget(queryButton);
    top->addWidget(refreshButton);

    proxy->setSourceModel(model);
    tree = new QTreeView(q);
    tree->setObjectName(QStringLiteral("groupTree"));
    tree->setModel(proxy);
    tree->setSortingEnabled(true);
    tree->sortByColumn(0, Qt::AscendingOrder);
    tree->setUniformRowHeights(true);
    tree->setAlternatingRowColors(true);
    tree->setAllColumnsShowFocus(true);
    tree->setEditTriggers(QAbstractItemView::NoEditTriggers);
    tree->setSelectionMode(multipleSelection ? QAbstractItemView::ExtendedSelection
                                             : QAbstractItemView::SingleSelection);

    statusLabel = new QLabel(q);
    statusLabel->setObjectName(QStringLiteral("statusLabel"));
    statusLabel->setWordWrap(true);

    auto *buttons = new QDialogButtonBox(q);
    buttons->setObjectName(QStringLiteral("buttonBox"));
    acceptButton = buttons->addButton(acceptText, QDialogButtonBox::AcceptRole);
    acceptButton->setObjectName(QStringLiteral("acceptButton"));
    acceptButton->setEnabled(false);
    acceptButton->setDefault(true);
    buttons->addButton(QDialogButtonBox::Cancel);

    auto *layout = new QVBoxLayout(q);
    layout->addLayout(top);
    layout->addWidget(tree, 1);
    layout->addWidget(statusLabel);
    layout->addWidget(buttons);

    QObject::connect(filterEdit, &QLineEdit::textChanged, proxy, &QSortFilterProxyModel::setFilterFixedString);
    QObject::connect(queryButton, &QPushButton::clicked, q, &FileSelectDialog::EditQuery);
    QObject::connect(refreshButton, &QPushButton::clicked, q, &FileSelectDialog::RunQuery);
    QObject::connect(buttons, &QDialogButtonBox::accepted, q, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, q, &QDialog::reject);
    QObject::connect(tree->selectionModel(), &QItemSelectionModel::selectionChanged, q, [this] {
        selectionChanged();
    });
    // Enter on a group opens or closes it; on a file it reaches the dialog's default button.
    QObject::connect(tree, &QTreeView::activated, q, [this](const QModelIndex &index) {
        if (!isFileRow(index))
            tree->setExpanded(index.siblingAtColumn(0), !tree->isExpanded(index.siblingAtColumn(0)));
    });
    QObject::connect(tree, &QTreeView::doubleClicked, q, [this](const QModelIndex &index) {
        if (isFileRow(index))
            acceptButton->click();
    });
    QObject::connect(model, &ClientTreeModel::fileListFailed, q,
                     [this](const QString &guid, int, const QString &errorString) {
                         statusLabel->setText(
                             FileSelectDialog::tr("The files of %1 could not be loaded: %2").arg(guid, errorString));
                     });
}

FileQuery FileSelectDialogPrivate::restricted(const FileQuery &wanted) const
{
    FileQuery result(wanted);
    if (fileTypes.isEmpty())
        return result;
    result.ClearFileTypeList();
    for (const FileType type : fileTypes) {
        if (wanted.IsFileTypeListed(type))
            result.AddFileType(type);
    }
    if (result.GetFileTypeListSize() == 0) {
        for (const FileType type : fileTypes)
            result.AddFileType(type);
    }
    return result;
}

void FileSelectDialogPrivate::showGroups(const QList<FileGroupData> &groups)
{
    QStringList headers;
    FileGroupData::GetHeaders(headers);
    QVector<QStringList> rows;
    rows.reserve(groups.size());
    for (const FileGroupData &group : groups) {
        QStringList row;
        group.ToStringList(row);
        rows.append(row);
    }
    model->SetupModelData(headers, rows);
    if (!headerRestored) {
        headerRestored = true;
        const QByteArray state = DialogSettings::value(s_headerKey);
        if (state.isEmpty() || !tree->header()->restoreState(state)) {
            for (int column = 0; column < model->columnCount(); ++column)
                tree->resizeColumnToContents(column);
        }
    }
    statusLabel->setText(FileSelectDialog::tr("Groups found: %1").arg(groups.size()));
}

void FileSelectDialogPrivate::selectionChanged()
{
    chosen.clear();
    const QModelIndexList rows = tree->selectionModel()->selectedRows();
    for (const QModelIndex &row : rows) {
        if (!isFileRow(row))
            continue;
        const FileGroupTreeItem *item = model->GetItem(proxy->mapToSource(row));
        chosen.append(KavroUrl::fromKavroIds(item->GetGuid(), item->GetFileId()));
    }
    acceptButton->setEnabled(!chosen.isEmpty());
}

FileSelectDialog::FileSelectDialog(KavroClient *client, const QString &acceptText, bool multipleSelection,
                                   const QVector<FileType> &fileTypes, QWidget *parent)
    : QDialog(parent)
    , d(std::make_unique<FileSelectDialogPrivate>(this, client, fileTypes))
{
    setWindowTitle(tr("Choose an Archived File"));
    d->setUpWidgets(acceptText, multipleSelection);
    d->query = d->restricted(DialogSettings::lastQuery());
    resize(900, 520);
    DialogSettings::restoreGeometry(this);
    d->tree->setFocus();
}

FileSelectDialog::~FileSelectDialog()
{
    if (d->queryReply)
        d->queryReply->abort();
}

bool FileSelectDialog::Execute()
{
    RunQuery();
    return exec() == Accepted && !d->chosen.isEmpty();
}

FileQuery FileSelectDialog::GetQuery() const
{
    return d->query;
}

void FileSelectDialog::SetQuery(const FileQuery &query)
{
    d->query = d->restricted(query);
}

void FileSelectDialog::SetFilterText(const QString &text)
{
    d->filterEdit->setText(text);
}

QString FileSelectDialog::GetGuid() const
{
    return d->chosen.isEmpty() ? QString() : d->chosen.constFirst().toKavroGuid();
}

unsigned int FileSelectDialog::GetFileId() const
{
    return d->chosen.isEmpty() ? 0 : d->chosen.constFirst().toKavroFileId();
}

KavroUrl FileSelectDialog::GetUrl() const
{
    return d->chosen.isEmpty() ? KavroUrl() : d->chosen.constFirst();
}

QList<KavroUrl> FileSelectDialog::GetUrls() const
{
    return d->chosen;
}

void FileSelectDialog::RunQuery()
{
    if (d->queryReply)
        d->queryReply->abort();
    if (!d->client) {
        d->statusLabel->setText(tr("No archive client was given."));
        Q_EMIT queryFinished(ErrorNotConnected, 0);
        return;
    }
    DialogSettings::setLastQuery(d->query);
    d->statusLabel->setText(tr("Searching..."));
    KavroReply *reply = d->client->QueryFilesRequest(d->query);
    d->queryReply = reply;
    connect(reply, &KavroReply::finished, this, [this, reply] {
        reply->deleteLater();
        if (reply != d->queryReply)
            return;
        if (reply->error() != NoError) {
            d->statusLabel->setText(tr("The search failed: %1").arg(reply->errorString()));
            Q_EMIT queryFinished(reply->error(), 0);
            return;
        }
        const QList<FileGroupData> groups = reply->groups();
        d->showGroups(groups);
        Q_EMIT queryFinished(NoError, int(groups.size()));
    });
}

void FileSelectDialog::EditQuery()
{
    QueryDialog editor(d->query, d->client && d->client->IsUseUtc(), d->fileTypes, this);
    if (editor.exec() != Accepted)
        return;
    SetQuery(editor.GetQuery());
    RunQuery();
}

void FileSelectDialog::done(int result)
{
    if (d->queryReply)
        d->queryReply->abort();
    DialogSettings::saveGeometry(this);
    if (d->headerRestored)
        DialogSettings::setValue(s_headerKey, d->tree->header()->saveState());
    QDialog::done(result);
}

} // namespace Kavro

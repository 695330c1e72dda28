// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/kavrosaveasdlg.h>

#include <kavro/filetypemanager.h>
#include <kavro/kavroclient.h>
#include <kavro/kavroerrorstring.h>
#include <kavro/kavrofile.h>

#include "dialogsettings_p.h"

#include <QApplication>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QVBoxLayout>

namespace Kavro
{

class KavroSaveAsDlgPrivate
{
public:
    explicit KavroSaveAsDlgPrivate(KavroClient *client)
        : client(client)
    {
    }

    void setupUi(KavroSaveAsDlg *dialog);

    //! Save is offered only for an existing file and a name.
    void updateSaveButton()
    {
        const bool ready = QFileInfo(fileEdit->text()).isFile() && !nameEdit->text().trimmed().isEmpty();
        buttonBox->button(QDialogButtonBox::Save)->setEnabled(ready);
    }

    void showMessage(const QString &text)
    {
        errorLabel->setText(text);
        errorLabel->show();
    }

    void showError(const QString &reason)
    {
        showMessage(KavroSaveAsDlg::tr("Could not save the file: %1").arg(reason));
    }

    KavroClient *const client;
    KavroUrl url;
    //! The name follows the chosen file until the user types one of their own.
    bool nameFollowsFile = true;

    QLineEdit *fileEdit = nullptr;
    QPushButton *browseButton = nullptr;
    QLineEdit *nameEdit = nullptr;
    QComboBox *fileTypeCombo = nullptr;
    QLineEdit *versionEdit = nullptr;
    QSpinBox *lifeCycleSpin = nullptr;
    QLineEdit *detailEdit = nullptr;
    QPlainTextEdit *commentEdit = nullptr;
    QLabel *errorLabel = nullptr;
    QDialogButtonBox *buttonBox = nullptr;
};

void KavroSaveAsDlgPrivate::setupUi(KavroSaveAsDlg *dialog)
{
    // Created in tab order, each with the dialog as parent.
    fileEdit = new QLineEdit(dialog);
    fileEdit->setObjectName(QStringLiteral("fileEdit"));
    browseButton = new QPushButton(KavroSaveAsDlg::tr("&Browse..."), dialog);
    browseButton->setObjectName(QStringLiteral("browseButton"));
    browseButton->setAutoDefault(false);
    nameEdit = new QLineEdit(dialog);
    nameEdit->setObjectName(QStringLiteral("nameEdit"));
    fileTypeCombo = new QComboBox(dialog);
    fileTypeCombo->setObjectName(QStringLiteral("fileTypeCombo"));
    for (FileType type : FileTypeManager::Instance()->GetTypes())
        fileTypeCombo->addItem(FileTypeManager::GetText(type), int(type));
    versionEdit = new QLineEdit(QStringLiteral("1"), dialog);
    versionEdit->setObjectName(QStringLiteral("versionEdit"));
    lifeCycleSpin = new QSpinBox(dialog);
    lifeCycleSpin->setObjectName(QStringLiteral("lifeCycleSpin"));
    lifeCycleSpin->setRange(1, 36500);
    lifeCycleSpin->setValue(365);
    lifeCycleSpin->setSuffix(KavroSaveAsDlg::tr(" days"));
    detailEdit = new QLineEdit(dialog);
    detailEdit->setObjectName(QStringLiteral("detailEdit"));
    commentEdit = new QPlainTextEdit(dialog);
    commentEdit->setObjectName(QStringLiteral("commentEdit"));
    commentEdit->setTabChangesFocus(true);
    // Four lines to begin with, and never less than its scroll bars need; any height beyond that is welcome.
    const int fourLines = commentEdit->fontMetrics().lineSpacing() * 4
        + 2 * (commentEdit->frameWidth() + int(commentEdit->document()->documentMargin()));
    commentEdit->setMinimumHeight(qMax(fourLines, commentEdit->minimumSizeHint().height()));
    errorLabel = new QLabel(dialog);
    errorLabel->setObjectName(QStringLiteral("errorLabel"));
    errorLabel->setWordWrap(true);
    errorLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QPalette errorPalette = errorLabel->palette();
    errorPalette.setColor(QPalette::WindowText, QColor(0xc0, 0x1c, 0x28));
    errorLabel->setPalette(errorPalette);
    errorLabel->hide();
    buttonBox = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, dialog);
    buttonBox->setObjectName(QStringLiteral("buttonBox"));

    auto *fileRow = new QHBoxLayout;
    fileRow->addWidget(fileEdit, 1);
    fileRow->addWidget(browseButton);
    auto *fileLabel = new QLabel(KavroSaveAsDlg::tr("&File:"), dialog);
    fileLabel->setBuddy(fileEdit);

    auto *form = new QFormLayout;
    form->addRow(fileLabel, fileRow);
    form->addRow(KavroSaveAsDlg::tr("&Name:"), nameEdit);
    form->addRow(KavroSaveAsDlg::tr("File &type:"), fileTypeCombo);
    form->addRow(KavroSaveAsDlg::tr("&Version:"), versionEdit);
    form->addRow(KavroSaveAsDlg::tr("&Life cycle:"), lifeCycleSpin);
    form->addRow(KavroSaveAsDlg::tr("&Detail:"), detailEdit);
    form->addRow(KavroSaveAsDlg::tr("&Comment:"), commentEdit);

    auto *layout = new QVBoxLayout(dialog);
    layout->addLayout(form, 1);
    layout->addWidget(errorLabel);
    layout->addWidget(buttonBox);
}

KavroSaveAsDlg::KavroSaveAsDlg(KavroClient *client, const QString &localFile, QWidget *parent)
    : QDialog(parent)
    , d(std::make_unique<KavroSaveAsDlgPrivate>(client))
{
    setWindowTitle(tr("Save to Archive"));
    d->setupUi(this);

    connect(d->buttonBox, &QDialogButtonBox::accepted, this, &KavroSaveAsDlg::accept);
    connect(d->buttonBox, &QDialogButtonBox::rejected, this, &KavroSaveAsDlg::reject);
    connect(d->browseButton, &QPushButton::clicked, this, [this] {
        const QString chosen =
            QFileDialog::getOpenFileName(this, tr("Choose a File to Archive"), QFileInfo(d->fileEdit->text()).path());
        if (!chosen.isEmpty())
            d->fileEdit->setText(QDir::toNativeSeparators(chosen));
    });
    connect(d->fileEdit, &QLineEdit::textChanged, this, [this](const QString &path) {
        if (d->nameFollowsFile)
            d->nameEdit->setText(QFileInfo(path).completeBaseName());
        d->updateSaveButton();
    });
    // textEdited() comes from the user only; emptying the name lets it follow the file again.
    connect(d->nameEdit, &QLineEdit::textEdited, this, [this](const QString &name) {
        d->nameFollowsFile = name.isEmpty();
    });
    connect(d->nameEdit, &QLineEdit::textChanged, this, [this] {
        d->updateSaveButton();
    });

    d->fileEdit->setText(QDir::toNativeSeparators(localFile));
    d->updateSaveButton();
    // With a file given the name is what the user most likely adjusts first.
    (localFile.isEmpty() ? static_cast<QWidget *>(d->fileEdit) : d->nameEdit)->setFocus();

    const QSize hint = minimumSizeHint();
    resize(qMax(hint.width(), 520), hint.height());
    DialogSettings::restoreGeometry(this);
}

KavroSaveAsDlg::~KavroSaveAsDlg() = default;

bool KavroSaveAsDlg::Execute()
{
    return exec() == Accepted;
}

KavroUrl KavroSaveAsDlg::GetUrl() const
{
    return d->url;
}

void KavroSaveAsDlg::accept()
{
    const QFileInfo source(d->fileEdit->text());
    const QString name = d->nameEdit->text().trimmed();
    if (!source.isFile() || name.isEmpty())
        return;
    if (!d->client || !d->client->IsConnected()) {
        d->showError(KavroErrorString::Get(ErrorNotConnected));
        return;
    }

    // KavroFile names the group after the file, so a different name needs a copy that carries it.
    QTemporaryDir copyDirectory;
    QString path = source.absoluteFilePath();
    if (name != source.completeBaseName()) {
        if (name.contains(QLatin1Char('/')) || name.contains(QLatin1Char('\\'))) {
            d->showMessage(tr("The name must not contain \"/\" or \"\\\"."));
            return;
        }
        if (!copyDirectory.isValid()) {
            d->showError(copyDirectory.errorString());
            return;
        }
        const QString suffix = source.suffix();
        const QString copy = copyDirectory.filePath(suffix.isEmpty() ? name : name + QLatin1Char('.') + suffix);
        QFile original(path);
        if (!original.copy(copy)) {
            d->showError(original.errorString());
            return;
        }
        path = copy;
    }

    unsigned int lifeCycleDays = d->lifeCycleSpin->value();
    const auto fileType = static_cast<FileType>(d->fileTypeCombo->currentData().toInt());
    QApplication::setOverrideCursor(Qt::WaitCursor);
    KavroFile file(d->client, path, d->versionEdit->text(), lifeCycleDays, d->detailEdit->text(),
                   d->commentEdit->toPlainText(), fileType, quint64(source.size()));
    QApplication::restoreOverrideCursor();

    const QString guid = file.GetGuid();
    const unsigned int fileId = file.GetFileId();
    if (file.GetError() != NoError || guid.isEmpty() || fileId == 0) {
        // A group created without its file is of no use; a retry creates a new one.
        if (!guid.isEmpty())
            d->client->DeleteFileGroupAsync(guid);
        d->showError(file.GetError() != NoError ? file.GetErrorString() : KavroErrorString::Get(ErrorAddFile));
        return;
    }
    d->url = KavroUrl::fromKavroIds(guid, fileId);
    d->errorLabel->hide();
    QDialog::accept();
}

void KavroSaveAsDlg::done(int result)
{
    DialogSettings::saveGeometry(this);
    QDialog::done(result);
}

} // namespace Kavro

// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/querydialog.h>

#include <kavro/filequery.h>
#include <kavro/filetypemanager.h>
#include <kavro/locationstatestring.h>

#include "dialogsettings_p.h"
#include "queryfields_p.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDateTimeEdit>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>

#include <array>
#include <type_traits>

namespace Kavro
{

namespace
{
// "Name" -> "name": the object names are built from the settings keys of the fields.
QString objectNameOf(const char *key, const char *suffix)
{
    QString name = QLatin1String(key) + QLatin1String(suffix);
    name[0] = name.at(0).toLower();
    return name;
}

QString translatedLabel(const char *label)
{
    return QCoreApplication::translate("Kavro::QueryDialog", label);
}

//! Selects the entry of \a combo whose data is \a value; a value the list lacks gets an entry of its own.
void selectValue(QComboBox *combo, qint32 value, const QString &text)
{
    int index = combo->findData(value);
    if (index < 0) {
        combo->addItem(text, value);
        index = combo->count() - 1;
    }
    combo->setCurrentIndex(index);
}
} // namespace

class QueryDialogPrivate
{
public:
    //! One side of a time range: the box that closes it and the editor of its time.
    struct Bound {
        QCheckBox *check = nullptr;
        QDateTimeEdit *edit = nullptr;
        //! Whether the editor holds a time of the query's or of the user's, rather than none yet.
        bool hasTime = false;
    };
    using TextFields = std::decay_t<decltype(queryTextFields())>;
    using TimeFields = std::decay_t<decltype(queryTimeFields())>;

    QWidget *createTextsPage(QWidget *parent);
    QWidget *createTypesPage(const QVector<FileType> &offeredTypes, QWidget *parent);
    QWidget *createTimesPage(QWidget *parent);
    void createBound(Bound &bound, const char *key, bool isMin, const QString &rowLabel, QWidget *parent);

    void setQuery(const FileQuery &query);
    void setBound(Bound &bound, const QDateTime &time);
    QDateTime boundTime(const Bound &bound) const;
    //! Where a bound that has just been closed starts: today's start for a minimum, now for a maximum.
    QDateTime defaultTime(bool isMin) const;

    bool useUtc = false;
    std::array<QLineEdit *, std::tuple_size_v<TextFields>> textEdits{};
    QListWidget *fileTypeList = nullptr;
    QComboBox *locationStateCombo = nullptr;
    QComboBox *lockStateCombo = nullptr;
    // Per time range: its minimum, then its maximum.
    std::array<std::array<Bound, 2>, std::tuple_size_v<TimeFields>> bounds{};
};

QWidget *QueryDialogPrivate::createTextsPage(QWidget *parent)
{
    auto *page = new QWidget(parent);
    auto *layout = new QFormLayout(page);
    for (std::size_t i = 0; i < queryTextFields().size(); ++i) {
        const QueryTextField &field = queryTextFields()[i];
        auto *edit = new QLineEdit(page);
        edit->setObjectName(objectNameOf(field.key, "Edit"));
        edit->setClearButtonEnabled(true);
        layout->addRow(translatedLabel(field.label), edit);
        textEdits[i] = edit;
    }
    return page;
}

QWidget *QueryDialogPrivate::createTypesPage(const QVector<FileType> &offeredTypes, QWidget *parent)
{
    auto *page = new QWidget(parent);
    auto *layout = new QVBoxLayout(page);

    fileTypeList = new QListWidget(page);
    fileTypeList->setObjectName(QStringLiteral("fileTypeList"));
    const QVector<FileType> types = offeredTypes.isEmpty() ? FileTypeManager::Instance()->GetTypes() : offeredTypes;
    for (FileType type : types) {
        auto *item = new QListWidgetItem(FileTypeManager::GetText(type), fileTypeList);
        item->setData(Qt::UserRole, int(type));
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        item->setCheckState(Qt::Unchecked);
    }
    auto *typesLabel = new QLabel(QueryDialog::tr("File &types:"), page);
    typesLabel->setBuddy(fileTypeList);
    layout->addWidget(typesLabel);
    layout->addWidget(fileTypeList, 1);

    locationStateCombo = new QComboBox(page);
    locationStateCombo->setObjectName(QStringLiteral("locationStateCombo"));
    locationStateCombo->addItem(QueryDialog::tr("Any"), int(LocationUndefined));
    for (int state = LocationLocal; state <= LocationUnknownFileGroup; ++state)
        locationStateCombo->addItem(LocationStateString::GetText(LocationState(state)), state);

    lockStateCombo = new QComboBox(page);
    lockStateCombo->setObjectName(QStringLiteral("lockStateCombo"));
    lockStateCombo->addItem(QueryDialog::tr("Any"), int(LockUndefined));
    for (int state = LockFree; state <= LockWrite; ++state)
        lockStateCombo->addItem(GetLockStateText(LockState(state)), state);

    auto *states = new QFormLayout;
    states->addRow(QueryDialog::tr("&Location:"), locationStateCombo);
    states->addRow(QueryDialog::tr("Loc&k state:"), lockStateCombo);
    layout->addLayout(states);
    return page;
}

QWidget *QueryDialogPrivate::createTimesPage(QWidget *parent)
{
    auto *page = new QWidget(parent);
    auto *layout = new QGridLayout(page);
    layout->addWidget(
        new QLabel(useUtc ? QueryDialog::tr("Times in UTC") : QueryDialog::tr("Times in local time"), page), 0, 0, 1,
        5);
    // Created in row order, so that the tab order runs along each row.
    for (std::size_t i = 0; i < queryTimeFields().size(); ++i) {
        const QueryTimeField &field = queryTimeFields()[i];
        const QString label = translatedLabel(field.label);
        const int row = int(i) + 1;
        layout->addWidget(new QLabel(label, page), row, 0);
        createBound(bounds[i][0], field.key, true, label, page);
        createBound(bounds[i][1], field.key, false, label, page);
        layout->addWidget(bounds[i][0].check, row, 1);
        layout->addWidget(bounds[i][0].edit, row, 2);
        layout->addWidget(bounds[i][1].check, row, 3);
        layout->addWidget(bounds[i][1].edit, row, 4);
    }
    layout->setColumnStretch(2, 1);
    layout->setColumnStretch(4, 1);
    layout->setRowStretch(layout->rowCount(), 1);
    return page;
}

void QueryDialogPrivate::createBound(Bound &bound, const char *key, bool isMin, const QString &rowLabel,
                                     QWidget *parent)
{
    bound.check = new QCheckBox(isMin ? QueryDialog::tr("From") : QueryDialog::tr("To"), parent);
    bound.check->setObjectName(objectNameOf(key, isMin ? "FromCheck" : "ToCheck"));
    bound.edit = new QDateTimeEdit(parent);
    bound.edit->setObjectName(objectNameOf(key, isMin ? "FromEdit" : "ToEdit"));
    bound.edit->setTimeSpec(useUtc ? Qt::UTC : Qt::LocalTime);
    bound.edit->setDisplayFormat(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    bound.edit->setCalendarPopup(true);
    bound.edit->setEnabled(false);
    // "From" and "To" alone say nothing to a screen reader.
    const QString accessibleName =
        isMin ? QueryDialog::tr("%1 from").arg(rowLabel) : QueryDialog::tr("%1 to").arg(rowLabel);
    bound.check->setAccessibleName(accessibleName);
    bound.edit->setAccessibleName(accessibleName);

    // bounds lives as long as the dialog and never moves, so the handler may hold on to the entry.
    QObject::connect(bound.check, &QCheckBox::toggled, bound.edit, [this, &bound, isMin](bool checked) {
        bound.edit->setEnabled(checked);
        // A bound the user closes starts near now rather than at whatever the editor held.
        if (checked && !bound.hasTime) {
            bound.edit->setDateTime(defaultTime(isMin));
            bound.hasTime = true;
        }
    });
}

QDateTime QueryDialogPrivate::defaultTime(bool isMin) const
{
    const QDateTime now = useUtc ? QDateTime::currentDateTimeUtc() : QDateTime::currentDateTime();
    if (isMin)
        return QDateTime(now.date(), QTime(0, 0), now.timeSpec());
    const QTime time = now.time();
    return QDateTime(now.date(), QTime(time.hour(), time.minute(), time.second()), now.timeSpec());
}

void QueryDialogPrivate::setBound(Bound &bound, const QDateTime &time)
{
    const bool closed = time.isValid();
    // Set before the box, whose handler would otherwise put in a default time.
    bound.hasTime = closed;
    if (closed)
        bound.edit->setDateTime(useUtc ? time.toUTC() : time.toLocalTime());
    bound.check->setChecked(closed);
    bound.edit->setEnabled(closed);
}

QDateTime QueryDialogPrivate::boundTime(const Bound &bound) const
{
    return bound.check->isChecked() ? bound.edit->dateTime().toUTC() : QDateTime();
}

void QueryDialogPrivate::setQuery(const FileQuery &query)
{
    for (std::size_t i = 0; i < queryTextFields().size(); ++i)
        textEdits[i]->setText((query.*queryTextFields()[i].get)());

    for (int row = 0; row < fileTypeList->count(); ++row) {
        QListWidgetItem *item = fileTypeList->item(row);
        const bool wanted = query.IsFileTypeListed(FileType(item->data(Qt::UserRole).toInt()));
        item->setCheckState(wanted ? Qt::Checked : Qt::Unchecked);
    }

    selectValue(locationStateCombo, query.GetLocationState(), LocationStateString::GetText(query.GetLocationState()));
    selectValue(lockStateCombo, query.GetLockState(), GetLockStateText(query.GetLockState()));

    for (std::size_t i = 0; i < queryTimeFields().size(); ++i) {
        const QueryTimeField &field = queryTimeFields()[i];
        setBound(bounds[i][0], (query.*field.getMin)());
        setBound(bounds[i][1], (query.*field.getMax)());
    }
}

QueryDialog::QueryDialog(const FileQuery &query, bool useUtc, const QVector<FileType> &fileTypes, QWidget *parent)
    : QDialog(parent)
    , d(std::make_unique<QueryDialogPrivate>())
{
    d->useUtc = useUtc;
    setWindowTitle(tr("Search Criteria"));

    auto *tabs = new QTabWidget(this);
    tabs->setObjectName(QStringLiteral("tabs"));
    tabs->addTab(d->createTextsPage(tabs), tr("Te&xts"));
    tabs->addTab(d->createTypesPage(fileTypes, tabs), tr("T&ypes and states"));
    tabs->addTab(d->createTimesPage(tabs), tr("Ti&mes"));

    auto *buttonBox =
        new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel | QDialogButtonBox::Reset, this);
    buttonBox->setObjectName(QStringLiteral("buttonBox"));
    buttonBox->button(QDialogButtonBox::Ok)->setDefault(true);
    connect(buttonBox, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttonBox, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(buttonBox->button(QDialogButtonBox::Reset), &QPushButton::clicked, this, [this] {
        d->setQuery(FileQuery());
    });

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(tabs);
    layout->addWidget(buttonBox);

    d->setQuery(query);
    d->textEdits[0]->setFocus();

    resize(sizeHint().expandedTo(QSize(560, 400)));
    DialogSettings::restoreGeometry(this);
}

QueryDialog::~QueryDialog() = default;

FileQuery QueryDialog::GetQuery() const
{
    FileQuery query;
    for (std::size_t i = 0; i < queryTextFields().size(); ++i)
        (query.*queryTextFields()[i].set)(d->textEdits[i]->text());

    for (int row = 0; row < d->fileTypeList->count(); ++row) {
        const QListWidgetItem *item = d->fileTypeList->item(row);
        if (item->checkState() == Qt::Checked)
            query.AddFileType(FileType(item->data(Qt::UserRole).toInt()));
    }

    query.SetLocationState(LocationState(d->locationStateCombo->currentData().toInt()));
    query.SetLockState(LockState(d->lockStateCombo->currentData().toInt()));

    for (std::size_t i = 0; i < queryTimeFields().size(); ++i) {
        const QueryTimeField &field = queryTimeFields()[i];
        (query.*field.setMin)(d->boundTime(d->bounds[i][0]));
        (query.*field.setMax)(d->boundTime(d->bounds[i][1]));
    }
    return query;
}

void QueryDialog::done(int result)
{
    DialogSettings::saveGeometry(this);
    QDialog::done(result);
}

} // namespace Kavro

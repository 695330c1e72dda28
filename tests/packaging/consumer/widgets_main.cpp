// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// Uses the models and a dialog of Kavro::Widgets from the installed headers and library.
#include <kavro/clienttreemodel.h>
#include <kavro/filegroupsortmodel.h>
#include <kavro/filequery.h>
#include <kavro/querydialog.h>

#include <QApplication>
#include <cstdio>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    Kavro::ClientTreeModel model(nullptr);
    model.SetupModelData({QStringLiteral("Name")}, {{QStringLiteral("plans"), QStringLiteral("G")}});
    Kavro::FileGroupSortModel sorted;
    sorted.setSourceModel(&model);
    Kavro::FileQuery query;
    query.SetFileGroupSearchText(QStringLiteral("plans"));
    const Kavro::QueryDialog dialog(query, true);
    const bool ok = sorted.rowCount() == 1 && sorted.columnCount() == 2
        && dialog.GetQuery().GetFileGroupSearchText() == QLatin1String("plans");
    std::puts(ok ? "widgets consumer ok" : "widgets consumer FAILED");
    return ok ? 0 : 1;
}

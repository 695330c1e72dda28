#include <QTest>
class tst_X : public QObject
{
    Q_OBJECT
};
QTEST_GUILESS_MAIN(tst_X)
#include "tst_kavrofile.moc"

#include "systemfixture.h"
#include "testmain.h"

#include "kdx/kdx.h"

#include <QDir>
#include <QFile>
#include <QVector>

#include <cerrno>
#include <cstdlib>
#include <sys/xattr.h>

namespace {
const QString MaxIlevFile = QStringLiteral("/etc/zql-platform/mic/max-ilev");
const QString IlevsFile = QStringLiteral("/etc/zql-platform/mic/ilevs");
const QByteArray Attribute = QByteArrayLiteral("trusted.tessel.ilev");
const QString LabelledFile = QStringLiteral("/srv/kdx-labelled");

struct Levels
{
    int count = 0;
    int error = 0;
    QVector<int> levels;
};

Levels readLevels()
{
    Levels result;
    kdx_ilev_t *levels = nullptr;
    errno = 0;
    result.count = kdx_get_ilevs(&levels);
    result.error = errno;
    for (int i = 0; i < result.count; ++i)
        result.levels << levels[i];
    std::free(levels);
    return result;
}

// The name of @p level, or "<none>".
QString levelText(int level)
{
    char *text = kdx_ilev_get_text(static_cast<kdx_ilev_t>(level), 0);
    if (text == nullptr)
        return QStringLiteral("<none>");
    QString result = QString::fromUtf8(text);
    std::free(text);
    return result;
}

bool setAttribute(const QString &path, const QByteArray &value)
{
    return ::setxattr(QFile::encodeName(path).constData(), Attribute.constData(), value.constData(),
                      static_cast<size_t>(value.size()), 0) == 0;
}
} // namespace

class KdxTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void simulatedKernel();
    void maxIlev_data();
    void maxIlev();
    void missingMaxIlev();
    void ilevs_data();
    void ilevs();
    void missingIlevs();
    void textFlagsMustBe0();
    void pathLevel_data();
    void pathLevel();
    void pathWithoutAttribute();
    void missingPath();
    void nullArguments();

private:
    QByteArray m_maxIlev;
    QByteArray m_ilevs;
};

void KdxTest::init()
{
    if (m_maxIlev.isNull()) {
        m_maxIlev = ZqlTest::readBytes(MaxIlevFile);
        m_ilevs = ZqlTest::readBytes(IlevsFile);
    }
    QVERIFY(ZqlTest::writeBytes(MaxIlevFile, m_maxIlev));
    QVERIFY(ZqlTest::writeBytes(IlevsFile, m_ilevs));
    QFile::remove(LabelledFile);
}

void KdxTest::simulatedKernel()
{
    QCOMPARE(kdx_get_max_ilev(), 63);
    const Levels levels = readLevels();
    QCOMPARE(levels.levels, (QVector<int>{0, 1, 15, 63, 127}));
    QCOMPARE(levelText(0), QStringLiteral("Low"));
    QCOMPARE(levelText(15), QStringLiteral("Operators"));
    QCOMPARE(levelText(63), QStringLiteral("<none>"));
    QCOMPARE(levelText(200), QStringLiteral("<none>"));
}

void KdxTest::maxIlev_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("level");
    QTest::addColumn<int>("error");
    QTest::newRow("63") << QByteArray("63\n") << 63 << 0;
    QTest::newRow("0") << QByteArray("0") << 0 << 0;
    QTest::newRow("255 with blanks") << QByteArray(" 255\t\nmore\n") << 255 << 0;
    QTest::newRow("256 is no level") << QByteArray("256\n") << -1 << EINVAL;
    QTest::newRow("negative") << QByteArray("-1\n") << -1 << EINVAL;
    QTest::newRow("word") << QByteArray("high\n") << -1 << EINVAL;
    QTest::newRow("empty") << QByteArray() << -1 << EINVAL;
    QTest::newRow("too big a file") << QByteArray(100, '1') << -1 << EFBIG;
}

void KdxTest::maxIlev()
{
    QFETCH(QByteArray, content);
    QFETCH(int, level);
    QFETCH(int, error);
    QVERIFY(ZqlTest::writeBytes(MaxIlevFile, content));
    errno = 0;
    QCOMPARE(kdx_get_max_ilev(), level);
    if (level < 0)
        QCOMPARE(errno, error);
}

void KdxTest::missingMaxIlev()
{
    QVERIFY(QFile::remove(MaxIlevFile));
    errno = 0;
    QCOMPARE(kdx_get_max_ilev(), -1);
    QCOMPARE(errno, ENOENT);
    QVERIFY(QDir().mkdir(MaxIlevFile));
    QCOMPARE(kdx_get_max_ilev(), -1);
    QVERIFY(QDir().rmdir(MaxIlevFile));
}

void KdxTest::ilevs_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QVector<int>>("levels");
    QTest::addColumn<QStringList>("texts");
    QTest::newRow("names and none")
        << QByteArray("# levels\n\n2 Two words \n7\t\tSeven\n9\n") << QVector<int>{2, 7, 9}
        << QStringList{QStringLiteral("Two words"), QStringLiteral("Seven"),
                       QStringLiteral("<none>")};
    QTest::newRow("order kept, no final line feed")
        << QByteArray("127\n0 Low") << QVector<int>{127, 0}
        << QStringList{QStringLiteral("<none>"), QStringLiteral("Low")};
    QTest::newRow("UTF-8 name")
        << QByteArray("5 \xd0\x92\xd1\x8b\xd1\x81\xd0\xbe\xd0\xba\xd0\xb8\xd0\xb9\n")
        << QVector<int>{5}
        << QStringList{QString::fromUtf8("\xd0\x92\xd1\x8b\xd1\x81\xd0\xbe"
                                         "\xd0\xba\xd0\xb8\xd0\xb9")};
    QTest::newRow("empty list") << QByteArray("# none\n") << QVector<int>() << QStringList();
}

void KdxTest::ilevs()
{
    QFETCH(QByteArray, content);
    QFETCH(QVector<int>, levels);
    QFETCH(QStringList, texts);
    QVERIFY(ZqlTest::writeBytes(IlevsFile, content));
    const Levels read = readLevels();
    QCOMPARE(read.count, levels.size());
    QCOMPARE(read.levels, levels);
    QStringList gotTexts;
    for (const int level : qAsConst(levels))
        gotTexts << levelText(level);
    QCOMPARE(gotTexts, texts);
}

void KdxTest::missingIlevs()
{
    const QList<QByteArray> damaged{
        "1\nx Name\n",         "1\n1 again\n", "300\n", "-1\n", QByteArray("1\n2 a\0b\n", 8),
        QByteArray(70000, '1')};
    for (const QByteArray &content : damaged) {
        QVERIFY(ZqlTest::writeBytes(IlevsFile, content));
        const Levels read = readLevels();
        QCOMPARE(read.count, -1);
        QVERIFY(read.error == EINVAL || read.error == EFBIG);
        QCOMPARE(levelText(1), QStringLiteral("<none>"));
    }
    QVERIFY(QFile::remove(IlevsFile));
    const Levels read = readLevels();
    QCOMPARE(read.count, -1);
    QCOMPARE(read.error, ENOENT);
}

void KdxTest::textFlagsMustBe0()
{
    errno = 0;
    QCOMPARE(kdx_ilev_get_text(0, 1), nullptr);
    QCOMPARE(errno, EINVAL);
}

void KdxTest::pathLevel_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<int>("level");
    QTest::newRow("63") << QByteArray("63") << 63;
    QTest::newRow("with line feed") << QByteArray("127\n") << 127;
    QTest::newRow("0") << QByteArray("0") << 0;
    QTest::newRow("256 is damaged") << QByteArray("256") << -1;
    QTest::newRow("word is damaged") << QByteArray("max") << -1;
    QTest::newRow("too long is damaged") << QByteArray("00063") << -1;
    QTest::newRow("empty is damaged") << QByteArray() << -1;
}

// -1: no label (damaged attribute, errno EINVAL).
void KdxTest::pathLevel()
{
    QFETCH(QByteArray, value);
    QFETCH(int, level);
    QVERIFY(ZqlTest::writeBytes(LabelledFile, "x"));
    QVERIFY(setAttribute(LabelledFile, value));
    errno = 0;
    kdx_label *label = kdx_get_path(QFile::encodeName(LabelledFile).constData());
    if (level < 0) {
        QCOMPARE(label, nullptr);
        QCOMPARE(errno, EINVAL);
        return;
    }
    QVERIFY(label != nullptr);
    QCOMPARE(kdxl_ilev(label), level);
    kdxl_put(label);
}

void KdxTest::pathWithoutAttribute()
{
    QVERIFY(ZqlTest::writeBytes(LabelledFile, "x"));
    kdx_label *label = kdx_get_path(QFile::encodeName(LabelledFile).constData());
    QVERIFY(label != nullptr);
    QCOMPARE(kdxl_ilev(label), 0);
    kdxl_put(label);
}

void KdxTest::missingPath()
{
    errno = 0;
    QCOMPARE(kdx_get_path("/nonexistent/kdx"), nullptr);
    QCOMPARE(errno, ENOENT);
}

void KdxTest::nullArguments()
{
    QCOMPARE(kdx_get_path(nullptr), nullptr);
    QCOMPARE(kdx_get_ilevs(nullptr), -1);
    QCOMPARE(kdxl_ilev(nullptr), 0);
    kdxl_put(nullptr);
}

ZQL_SANDBOXED_TEST_MAIN(KdxTest)
#include "kdxtest.moc"

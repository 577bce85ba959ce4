#include "maicmodule.h"

#include "diagnosticstreams_p.h"
#include "tessel/macdb.h"
#include "velaadmin/mode.h"

#include <QCoreApplication>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>

namespace {
const char TranslationContext[] = "MaicModule";
const QString ModuleName = QStringLiteral("maic");
const QString CategoriesKey = QStringLiteral("mac-categories");
const QString LevelsKey = QStringLiteral("mac-levels");
const QSet<QString> LevelKeys{LevelsKey};
const QSet<QString> AllKeys{LevelsKey, CategoriesKey};
constexpr int LevelsMode = 1;
constexpr int CategoriesMode = 2;
constexpr int MaskBits = 64;
constexpr int BitNumberMask = MaskBits - 1;

// Message texts, translated in the context of this module.
const char *const InternalErrorText = QT_TRANSLATE_NOOP("MaicModule", "Internal error: %1");
// The category store reports with the audit module's two texts, misspelling included.
const char *const CategoryStoreErrorText = QT_TRANSLATE_NOOP("MaicModule", "Internal errror: %1");
const char *const CategoryStoreCallText = QT_TRANSLATE_NOOP("MaicModule", "openauddb_r() == 0\n%1");
const char *const LevelStoreCallText = QT_TRANSLATE_NOOP("MaicModule", "putlevent_r() != 0\n%1");
const char *const UserListErrorText = QT_TRANSLATE_NOOP("MaicModule", "Unable to read user list");
const char *const UnknownParamText = QT_TRANSLATE_NOOP("MaicModule", "Don't have param %1");

QString translated(const char *text)
{
    return QCoreApplication::translate(TranslationContext, text);
}

QString systemError(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// "Internal error: CALL\nREASON".
QString internalError(const char *call, int error)
{
    return translated(InternalErrorText).arg(translated(call).arg(systemError(error)));
}

QString categoryStoreError(int error)
{
    return translated(CategoryStoreErrorText)
        .arg(translated(CategoryStoreCallText).arg(systemError(error)));
}

char *duplicateName(const QString &name)
{
    return strdup(name.toLocal8Bit().constData());
}

// The level and category databases differ only in these calls and texts.
struct CategoryTable
{
    using Handle = tessel_catdb;
    using Record = tessel_catent;
    static constexpr const char *OpenCall =
        QT_TRANSLATE_NOOP("MaicModule", "opencatdb_r() == 0\n%1");
    static constexpr const char *RewindCall =
        QT_TRANSLATE_NOOP("MaicModule", "setcatent_r( catHandler ) < 0\n%1");
    static constexpr const char *Conflict =
        QT_TRANSLATE_NOOP("MaicModule", "Category name \"%1\" already exists");
    static Handle *open() { return opencatdb_r(); }
    static int rewind(Handle *handle) { return setcatent_r(handle); }
    static Record *next(Handle *handle) { return getcatent_r(handle); }
    static void release(Record *record) { freecatent_r(record); }
    static void end(Handle *handle) { endcatent_r(handle); }
    static int put(Handle *handle, const Record *record) { return putcatent_r(handle, record); }
    static void close(Handle *handle) { closecatdb_r(handle); }
    static const char *name(const Record *record) { return record->cat_name; }
    static QString storeError(int error) { return categoryStoreError(error); }
};

struct LevelTable
{
    using Handle = tessel_levdb;
    using Record = tessel_levent;
    static constexpr const char *OpenCall =
        QT_TRANSLATE_NOOP("MaicModule", "openlevdb_r() == 0\n%1");
    static constexpr const char *RewindCall =
        QT_TRANSLATE_NOOP("MaicModule", "setlevent_r( levelHandler ) < 0\n%1");
    static constexpr const char *Conflict =
        QT_TRANSLATE_NOOP("MaicModule", "Level name \"%1\" already exists");
    static Handle *open() { return openlevdb_r(); }
    static int rewind(Handle *handle) { return setlevent_r(handle); }
    static Record *next(Handle *handle) { return getlevent_r(handle); }
    static void release(Record *record) { freelevent_r(record); }
    static void end(Handle *handle) { endlevent_r(handle); }
    static int put(Handle *handle, const Record *record) { return putlevent_r(handle, record); }
    static void close(Handle *handle) { closelevdb_r(handle); }
    static const char *name(const Record *record) { return record->lev_name; }
    static QString storeError(int error) { return internalError(LevelStoreCallText, error); }
};

// Opens and rewinds a table. @return the handle, or null after reporting why.
template<typename Table>
typename Table::Handle *openTable(const std::function<void(const QString &)> &report)
{
    typename Table::Handle *handle = Table::open();
    if (!handle) {
        report(internalError(Table::OpenCall, errno));
        return nullptr;
    }
    if (Table::rewind(handle) < 0) {
        const int error = errno;
        Table::close(handle);
        report(internalError(Table::RewindCall, error));
        return nullptr;
    }
    return handle;
}

// Reads a table: @p keyOf gives a record's key, or an empty text to skip the record.
template<typename Table, typename KeyOf>
SettingsReply readTable(const std::function<void(const QString &)> &report, KeyOf keyOf)
{
    typename Table::Handle *handle = openTable<Table>(report);
    if (!handle)
        return {ModuleInterface::StatusFailure, {}};
    QHash<QString, QVariant> table;
    while (typename Table::Record *record = Table::next(handle)) {
        const QString key = keyOf(record);
        if (!key.isEmpty())
            table.insert(key, QString::fromLocal8Bit(Table::name(record)));
        Table::release(record);
    }
    Table::end(handle);
    Table::close(handle);
    return {ModuleInterface::StatusSuccess, table};
}

// Stores one name, refused when another entry (@p sameEntry false) has it already.
template<typename Table, typename SameEntry, typename Fill>
int storeName(const std::function<void(const QString &)> &report, const QString &name,
              SameEntry sameEntry, Fill fill)
{
    typename Table::Handle *handle = openTable<Table>(report);
    if (!handle)
        return 1;
    while (typename Table::Record *record = Table::next(handle)) {
        const bool taken =
            QString::fromLocal8Bit(Table::name(record)) == name && !sameEntry(record);
        Table::release(record);
        if (taken) {
            Table::end(handle);
            Table::close(handle);
            report(translated(Table::Conflict).arg(name));
            return 1;
        }
    }
    Table::end(handle);

    auto *record =
        static_cast<typename Table::Record *>(std::calloc(1, sizeof(typename Table::Record)));
    int result = -1;
    int error = ENOMEM;
    if (record) {
        fill(record, duplicateName(name));
        errno = 0;
        result = Table::put(handle, record);
        error = errno;
        Table::release(record);
    }
    Table::close(handle);
    if (result == 0)
        return 0;
    report(Table::storeError(error));
    return 1;
}
} // namespace

MaicModule::MaicModule() = default;

MaicModule::~MaicModule() = default;

SettingsReply MaicModule::getSettings()
{
    // Both are read (and report) before either status is looked at.
    const qint32 categoriesStatus = getCategories().first;
    const qint32 levelsStatus = getMacLevels().first;
    if (categoriesStatus != StatusSuccess || levelsStatus != StatusSuccess)
        return {StatusFailure, {}};
    // Read once more for the values: both databases twice, the user list four times.
    const SettingsReply categories = getCategories();
    const SettingsReply levels = getMacLevels();
    return {StatusSuccess,
            {{CategoriesKey, QVariant(categories.second)}, {LevelsKey, QVariant(levels.second)}}};
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the settings by value
bool MaicModule::setSettings(QHash<QString, QVariant> settings)
{
    if (settings.contains(CategoriesKey) &&
        setParameter(CategoriesKey, settings.value(CategoriesKey).toHash()) == 1)
        return true;
    if (settings.contains(LevelsKey))
        return setParameter(LevelsKey, settings.value(LevelsKey).toHash()) == 1;
    return false;
}

QString MaicModule::getName()
{
    return ModuleName;
}

bool MaicModule::isAvailable()
{
    const int mode = VelaAdmin::Mode::getCurrentMode();
    return static_cast<unsigned>(mode - 1) <= 1U;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the set by value
QStringList MaicModule::isParametersCorrect(QSet<QString> parameters)
{
    switch (VelaAdmin::Mode::getCurrentMode()) {
    case LevelsMode:
        return unknownKeys(std::move(parameters), LevelKeys);
    case CategoriesMode:
        return unknownKeys(std::move(parameters), AllKeys);
    default:
        return unknownKeys(std::move(parameters), {});
    }
}

SettingsReply MaicModule::getCategories()
{
    const auto report = [this](const QString &text) {
        writeDiagnostic(errorStream, formatOutput(text));
    };
    // The list is read and kept, though nothing here uses it.
    if (!readUserList()) {
        report(translated(UserListErrorText));
        return {StatusFailure, {}};
    }
    return readTable<CategoryTable>(report, [](const tessel_catent *record) {
        // A record without a bit has no number (digit() would never return for it).
        return record->cat_mask == 0 ? QString() : QString::number(digit(record->cat_mask));
    });
}

SettingsReply MaicModule::getMacLevels()
{
    const auto report = [this](const QString &text) {
        writeDiagnostic(errorStream, formatOutput(text));
    };
    if (!readUserList()) {
        report(translated(UserListErrorText));
        return {StatusFailure, {}};
    }
    return readTable<LevelTable>(
        report, [](const tessel_levent *record) { return QString::number(record->lev_level); });
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): an exported signature taken by value
SettingsReply MaicModule::getParam(QString name)
{
    if (name == CategoriesKey)
        return getCategories();
    if (name == LevelsKey)
        return getMacLevels();
    writeDiagnostic(errorStream, formatOutput(translated(UnknownParamText).arg(name)));
    return {StatusFailure, {}};
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): an exported signature taken by value
int MaicModule::setParameter(QString name, QHash<QString, QVariant> values)
{
    const SettingsReply current = getParam(name);
    if (current.first != StatusSuccess)
        return 1;
    for (auto it = values.constBegin(); it != values.constEnd(); ++it) {
        if (it.value() == current.second.value(it.key()))
            continue;
        if (setValueInParam(name, it.key().toInt(), it.value().toString()) == 1)
            return 1;
    }
    return 0;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): an exported signature taken by value
int MaicModule::setValueInParam(QString name, int number, QString text)
{
    if (name == CategoriesKey)
        return setCategory(number, text);
    if (name == LevelsKey)
        return setMacLevel(number, text);
    return 0;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): an exported signature taken by value
int MaicModule::setCategory(int bit, QString name)
{
    const std::uint64_t mask = std::uint64_t(1) << (static_cast<unsigned>(bit) & BitNumberMask);
    return storeName<CategoryTable>(
        [this](const QString &text) { writeDiagnostic(errorStream, formatOutput(text)); }, name,
        [mask](const tessel_catent *record) { return record->cat_mask == mask; },
        [mask](tessel_catent *record, char *copy) {
            record->cat_name = copy;
            record->cat_mask = mask;
        });
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): an exported signature taken by value
int MaicModule::setMacLevel(int level, QString name)
{
    const auto byte = static_cast<unsigned char>(level);
    return storeName<LevelTable>(
        [this](const QString &text) { writeDiagnostic(errorStream, formatOutput(text)); }, name,
        [byte](const tessel_levent *record) { return record->lev_level == byte; },
        [byte](tessel_levent *record, char *copy) {
            record->lev_name = copy;
            record->lev_level = byte;
        });
}

int MaicModule::digit(unsigned long long mask)
{
    int low = 0;
    int high = MaskBits;
    for (;;) {
        const int mid = (low + high) / 2;
        const unsigned long long p = 1ULL << mid;
        if (p >= mask)
            high = mid;
        else
            low = mid;
        if ((p & mask) != 0)
            return mid;
    }
}

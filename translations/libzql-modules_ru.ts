<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ru_RU">
<context>
    <name>AuditModule</name>
    <message>
        <source>Internal errror: %1</source>
        <translation>Внутренняя ошибка: %1</translation>
    </message>
    <message>
        <source>Failed to add audit record</source>
        <translation>Не удалось добавить запись аудита</translation>
    </message>
</context>
<context>
    <name>DigSigConfig</name>
    <message>
        <source>Can&apos;t open file %1</source>
        <translation>Не удаётся открыть файл %1</translation>
    </message>
    <message>
        <source>file %1 has invalid line: %2</source>
        <translation>файл %1 содержит недопустимую строку: %2</translation>
    </message>
    <message>
        <source>file %1 contains invalid key: %2</source>
        <translation>файл %1 содержит недопустимый ключ: %2</translation>
    </message>
    <message>
        <source>file %1 does not contain the required option %2</source>
        <translation>файл %1 не содержит обязательный параметр %2</translation>
    </message>
    <message>
        <source>DIGSIG_ELF_MODE value &quot;%1&quot; is invalid</source>
        <translation>недопустимое значение DIGSIG_ELF_MODE &quot;%1&quot;</translation>
    </message>
    <message>
        <source>DIGSIG_XATTR_MODE value &quot;%1&quot; is invalid</source>
        <translation>недопустимое значение DIGSIG_XATTR_MODE &quot;%1&quot;</translation>
    </message>
    <message>
        <source>DIGSIG_IGNORE_XATTR_KEYS value &quot;%1&quot; is invalid</source>
        <translation>недопустимое значение DIGSIG_IGNORE_XATTR_KEYS &quot;%1&quot;</translation>
    </message>
    <message>
        <source>DIGSIG_IGNORE_GOST2001 value &quot;%1&quot; is invalid</source>
        <translation>недопустимое значение DIGSIG_IGNORE_GOST2001 &quot;%1&quot;</translation>
    </message>
    <message>
        <source>file %1 can not be opened</source>
        <translation>не удаётся открыть файл %1</translation>
    </message>
    <message>
        <source>file %1 can not be saved</source>
        <translation>не удаётся сохранить файл %1</translation>
    </message>
    <message>
        <source>Line %1 exceeds the size limit.</source>
        <translation>Строка %1 превышает допустимый размер.</translation>
    </message>
    <message>
        <source>Can&apos;t parse /etc/mtab</source>
        <translation>Не удаётся разобрать /etc/mtab</translation>
    </message>
    <message>
        <source>Process: &quot;%1 %2&quot;. Error: %3.
&quot;Not started&quot;</source>
        <translation>Процесс: &quot;%1 %2&quot;. Ошибка: %3.
&quot;Не запущен&quot;</translation>
    </message>
    <message>
        <source>Process: &quot;%1 %2&quot;. Error: %3.
&quot;Not finished&quot;</source>
        <translation>Процесс: &quot;%1 %2&quot;. Ошибка: %3.
&quot;Не завершён&quot;</translation>
    </message>
    <message>
        <source>Process: &quot;%1 %2&quot; finished with errors:
%3
Exit code: %4</source>
        <translation>Процесс: &quot;%1 %2&quot; завершился с ошибками:
%3
Код выхода: %4</translation>
    </message>
    <message>
        <source>Process: &quot;%1 %2&quot; finished with errors:
%3</source>
        <translation>Процесс: &quot;%1 %2&quot; завершился с ошибками:
%3</translation>
    </message>
    <message>
        <source>Process: &quot;%1 %2&quot; finished with warnings:
%3</source>
        <translation>Процесс: &quot;%1 %2&quot; завершился с предупреждениями:
%3</translation>
    </message>
</context>
<context>
    <name>DigSigModule</name>
    <message>
        <source>Can&apos;t remount /boot read write</source>
        <translation>Не удаётся перемонтировать /boot для чтения и записи</translation>
    </message>
</context>
<context>
    <name>KioskGlobalModule</name>
    <message>
        <source>Unable to write files to &quot;%1&quot;</source>
        <translation>Не удалось записать файлы в &quot;%1&quot;</translation>
    </message>
</context>
<context>
    <name>QObject</name>
    <message>
        <source>&quot;%1&quot; not exists</source>
        <translation>&quot;%1&quot; не существует</translation>
    </message>
    <message>
        <source>&quot;%1&quot; error %2
%3</source>
        <translation>&quot;%1&quot; ошибка %2
%3</translation>
    </message>
    <message>
        <source>Process: &quot;%1 %2&quot;. Error: %3.
&quot;Not started&quot;</source>
        <translation>Процесс: &quot;%1 %2&quot;. Ошибка: %3.
&quot;Не запущен&quot;</translation>
    </message>
    <message>
        <source>Process: &quot;%1 %2&quot;. Error: %3.
&quot;Not finished&quot;</source>
        <translation>Процесс: &quot;%1 %2&quot;. Ошибка: %3.
&quot;Не завершён&quot;</translation>
    </message>
    <message>
        <source>Process: &quot;%1 %2&quot;. Exit code: %3.
&quot;%4&quot;</source>
        <translation>Процесс: &quot;%1 %2&quot;. Код завершения: %3.
&quot;%4&quot;</translation>
    </message>
    <message>
        <source>Json object should contain key &apos;%1&apos;</source>
        <translation>Объект json должен содержать ключ &apos;%1&apos;</translation>
    </message>
    <message>
        <source>Expected double</source>
        <translation>Ожидалось число</translation>
    </message>
    <message>
        <source>Expected string</source>
        <translation>Ожидалась строка</translation>
    </message>
    <message>
        <source>Expected bool (0/1)</source>
        <translation>Ожидалось логическое значение (0/1)</translation>
    </message>
    <message>
        <source>lumo-security-monitor finished with error:
%1</source>
        <translation>lumo-security-monitor завершился с ошибкой:
%1</translation>
    </message>
    <message>
        <source>Process crashed</source>
        <translation>Процесс аварийно завершился</translation>
    </message>
    <message>
        <source>lumo-security-monitor finished with unexpected code: %1</source>
        <translation>lumo-security-monitor завершился с неожиданным кодом: %1</translation>
    </message>
    <message>
        <source>Json parse error:
%1</source>
        <translation>Ошибка разбора json:
%1</translation>
    </message>
    <message>
        <source>Expected json array</source>
        <translation>Ожидался массив json</translation>
    </message>
    <message>
        <source>Expected json object</source>
        <translation>Ожидался объект json</translation>
    </message>
    <message>
        <source>Failed to load security options .
%1</source>
        <translation>Не удалось загрузить параметры безопасности .
%1</translation>
    </message>
    <message>
        <source>skipping program </source>
        <translation>пропуск программы </translation>
    </message>
    <message>
        <source> (not installed)</source>
        <translation> (не установлена)</translation>
    </message>
    <message>
        <source>Some switches unavailable: No permission to create 
a lock-file that provides scripts synchronization</source>
        <translation>Некоторые переключатели недоступны: нет прав на создание 
файла блокировки, обеспечивающего синхронизацию сценариев</translation>
    </message>
    <message>
        <source>%1 finished with unexpected code: %2</source>
        <translation>%1 завершилась с неожиданным кодом: %2</translation>
    </message>
    <message>
        <source>skipping program</source>
        <translation>пропуск программы</translation>
    </message>
    <message>
        <source>(not installed)</source>
        <translation>(не установлена)</translation>
    </message>
    <message>
        <source>&quot;%1&quot; not contain &quot;pam_tally&quot;</source>
        <translation>&quot;%1&quot; не содержит &quot;pam_tally&quot;</translation>
    </message>
    <message>
        <source>&quot;%1&quot; not contain &quot;pam_cracklib or pam_pwquality&quot;</source>
        <translation>&quot;%1&quot; не содержит &quot;pam_cracklib или pam_pwquality&quot;</translation>
    </message>
    <message>
        <source>&quot;%1&quot; not contain &quot;pam_pwhistory&quot;</source>
        <translation>&quot;%1&quot; не содержит &quot;pam_pwhistory&quot;</translation>
    </message>
    <message>
        <source>Both profiles of supported PAM modules do not exist (%1, %2)</source>
        <translation>Не найден ни один профиль поддерживаемых модулей PAM (%1, %2)</translation>
    </message>
    <message>
        <source>&quot;%1&quot; not contain &quot;pam_cracklib&quot;</source>
        <translation>&quot;%1&quot; не содержит &quot;pam_cracklib&quot;</translation>
    </message>
    <message>
        <source>&quot;%1&quot; not contain &quot;pam_pwquality&quot;</source>
        <translation>&quot;%1&quot; не содержит &quot;pam_pwquality&quot;</translation>
    </message>
    <message>
        <source>Error when deleting previous configuration pam_pwhistory (call pam-auth-update failed)</source>
        <translation>Ошибка при удалении прежней конфигурации pam_pwhistory (вызов pam-auth-update завершился неудачно)</translation>
    </message>
    <message>
        <source>Error when deleting previous configuration pam_pwhistory (failed to delete configuration file %1</source>
        <translation>Ошибка при удалении прежней конфигурации pam_pwhistory (не удалось удалить файл конфигурации %1</translation>
    </message>
    <message>
        <source>Failed to create configuration file %1</source>
        <translation>Не удалось создать файл конфигурации %1</translation>
    </message>
    <message>
        <source>Failed to write configuration file %1</source>
        <translation>Не удалось записать файл конфигурации %1</translation>
    </message>
    <message>
        <source>pam_pwhistory configuration update failed (call pam-auth-update failed)</source>
        <translation>Не удалось обновить конфигурацию pam_pwhistory (вызов pam-auth-update завершился неудачно)</translation>
    </message>
    <message>
        <source>Default password expiration policy will be applied only for new user creation</source>
        <translation>Политика срока действия паролей по умолчанию будет применяться только к вновь создаваемым пользователям</translation>
    </message>
    <message>
        <source>&quot;%1&quot; holds %2: a switched number needs a whole number from -9007199254740992 to 9007199254740992</source>
        <translation>&quot;%1&quot; содержит %2: переключаемому числу нужно целое число от -9007199254740992 до 9007199254740992</translation>
    </message>
</context>
<context>
    <name>TesselConfFile</name>
    <message>
        <source>File &apos;%1&apos; not exist</source>
        <translation>Файл &apos;%1&apos; не существует</translation>
    </message>
    <message>
        <source>Open file &apos;%1&apos; error</source>
        <translation>Ошибка открытия файла &apos;%1&apos;</translation>
    </message>
    <message>
        <source>Write file &apos;%1&apos; error</source>
        <translation>Ошибка записи файла &apos;%1&apos;</translation>
    </message>
</context>
<context>
    <name>Mac::MacKernel</name>
    <message>
        <source>Loading...</source>
        <translation>Загрузка...</translation>
    </message>
    <message>
        <source>Subsystem is &lt;b&gt;enabled&lt;/b&gt;</source>
        <translation>Подсистема &lt;b&gt;включена&lt;/b&gt;</translation>
    </message>
    <message>
        <source>Subsystem is &lt;b&gt;disabled&lt;/b&gt;</source>
        <translation>Подсистема &lt;b&gt;выключена&lt;/b&gt;</translation>
    </message>
    <message>
        <source>Subsystem is disabled, but it will be &lt;b&gt;enabled after reboot&lt;/b&gt;</source>
        <translation>Подсистема выключена, но будет &lt;b&gt;включена после перезагрузки&lt;/b&gt;</translation>
    </message>
    <message>
        <source>Subsystem is enabled, but it will be &lt;b&gt;disabled after reboot&lt;/b&gt;</source>
        <translation>Подсистема включена, но будет &lt;b&gt;выключена после перезагрузки&lt;/b&gt;</translation>
    </message>
    <message>
        <source>MAC enabling already planned after reboot.</source>
        <translation>Включение МРД уже запланировано после перезагрузки.</translation>
    </message>
    <message>
        <source>MAC disabling already planned after reboot.</source>
        <translation>Выключение МРД уже запланировано после перезагрузки.</translation>
    </message>
</context>
<context>
    <name>Mac::Service</name>
    <message>
        <source>Can&apos;t open file %1!</source>
        <translation>Не удаётся открыть файл %1!</translation>
    </message>
    <message>
        <source>Can&apos;t write file %1: %2</source>
        <translation>Не удаётся записать файл %1: %2</translation>
    </message>
</context>
<context>
    <name>MaicModule</name>
    <message>
        <source>Internal error: %1</source>
        <translation>Внутренняя ошибка: %1</translation>
    </message>
    <message>
        <source>Internal errror: %1</source>
        <translation>Внутренняя ошибка: %1</translation>
    </message>
    <message>
        <source>openauddb_r() == 0
%1</source>
        <translation>openauddb_r() == 0
%1</translation>
    </message>
    <message>
        <source>putlevent_r() != 0
%1</source>
        <translation>putlevent_r() != 0
%1</translation>
    </message>
    <message>
        <source>opencatdb_r() == 0
%1</source>
        <translation>opencatdb_r() == 0
%1</translation>
    </message>
    <message>
        <source>openlevdb_r() == 0
%1</source>
        <translation>openlevdb_r() == 0
%1</translation>
    </message>
    <message>
        <source>setcatent_r( catHandler ) &lt; 0
%1</source>
        <translation>setcatent_r( catHandler ) &lt; 0
%1</translation>
    </message>
    <message>
        <source>setlevent_r( levelHandler ) &lt; 0
%1</source>
        <translation>setlevent_r( levelHandler ) &lt; 0
%1</translation>
    </message>
    <message>
        <source>Unable to read user list</source>
        <translation>Не удалось прочитать список пользователей</translation>
    </message>
    <message>
        <source>Don&apos;t have param %1</source>
        <translation>Нет параметра %1</translation>
    </message>
    <message>
        <source>Category name &quot;%1&quot; already exists</source>
        <translation>Имя категории &quot;%1&quot; уже существует</translation>
    </message>
    <message>
        <source>Level name &quot;%1&quot; already exists</source>
        <translation>Имя уровня &quot;%1&quot; уже существует</translation>
    </message>
</context>
<context>
    <name>QObject</name>
    <message>
        <source>%1 %2 returned %3:
%4
%5</source>
        <translation>%1 %2 вернул %3:
%4
%5</translation>
    </message>
    <message>
        <source>INACTIVE</source>
        <translation>INACTIVE</translation>
    </message>
    <message>
        <source>ENABLE</source>
        <translation>ENABLE</translation>
    </message>
    <message>
        <source>Can&apos;t find grub file: %1</source>
        <translation>Не найден файл grub: %1</translation>
    </message>
    <message>
        <source>Can&apos;t open grub file: %1</source>
        <translation>Не удалось открыть файл grub: %1</translation>
    </message>
    <message>
        <source>Can&apos;t find &apos;GRUB_CMDLINE_LINUX_DEFAULT&apos; in grub: %1</source>
        <translation>Не найдено &apos;GRUB_CMDLINE_LINUX_DEFAULT&apos; в файле grub: %1</translation>
    </message>
    <message>
        <source>Can&apos;t find boot file: %1</source>
        <translation>Не найден файл загрузки: %1</translation>
    </message>
    <message>
        <source>Can&apos;t open boot file: %1</source>
        <translation>Не удалось открыть файл загрузки: %1</translation>
    </message>
    <message>
        <source>Can&apos;t find default image (default=&lt;image label&gt;) in boot file: %1</source>
        <translation>Не найден образ по умолчанию (default=&lt;метка образа&gt;) в файле загрузки: %1</translation>
    </message>
    <message>
        <source>Can&apos;t find &apos;cmdline=&apos; in default image in boot file: %1</source>
        <translation>Не найдено &apos;cmdline=&apos; в образе по умолчанию в файле загрузки: %1</translation>
    </message>
    <message>
        <source>Can&apos;t copy %1 to %2</source>
        <translation>Не удалось скопировать %1 в %2</translation>
    </message>
    <message>
        <source>Can&apos;t remove %1</source>
        <translation>Не удалось удалить %1</translation>
    </message>
    <message>
        <source>Can&apos;t rename %1 to %2</source>
        <translation>Не удалось переименовать %1 в %2</translation>
    </message>
    <message>
        <source>The process failed to start. Either the invoked program is missing, or you may have insufficient permissions to invoke the program.</source>
        <translation>Не удалось запустить процесс. Вызываемая программа отсутствует, или недостаточно прав для её вызова.</translation>
    </message>
    <message>
        <source>The process crashed some time after starting successfully.</source>
        <translation>Процесс аварийно завершился через некоторое время после успешного запуска.</translation>
    </message>
    <message>
        <source>The last waitFor...() function timed out.</source>
        <translation>Истекло время ожидания последней функции waitFor...().</translation>
    </message>
    <message>
        <source>An error occurred when attempting to read from the process. For example, the process may not be running.</source>
        <translation>Ошибка при чтении из процесса. Например, процесс может быть не запущен.</translation>
    </message>
    <message>
        <source>An error occurred when attempting to write to the process. For example, the process may not be running, or it may have closed its input channel.</source>
        <translation>Ошибка при записи в процесс. Например, процесс может быть не запущен или закрыл свой входной канал.</translation>
    </message>
    <message>
        <source>An unknown error occurred.</source>
        <translation>Произошла неизвестная ошибка.</translation>
    </message>
    <message>
        <source>%1 is already %2</source>
        <translation>%1 уже равен %2</translation>
    </message>
    <message>
        <source>only an increase in the integrity level is allowed</source>
        <translation>допускается только повышение уровня целостности</translation>
    </message>
    <message>
        <source>When the MIC is turned on on the FS, no import is made. Turn off MIC on FS</source>
        <translation>Когда МКЦ включён на ФС, импорт не выполняется. Отключите МКЦ на ФС</translation>
    </message>
    <message>
        <source>Only raising the maximum integrity level is allowed</source>
        <translation>Допускается только повышение максимального уровня целостности</translation>
    </message>
</context>
<context>
    <name>Mic::MicKernel</name>
    <message>
        <source>High</source>
        <translation>Высокий</translation>
    </message>
    <message>
        <source>Quill</source>
        <translation>Перо</translation>
    </message>
    <message>
        <source>Custom</source>
        <translation>Пользовательский</translation>
    </message>
    <message>
        <source>MIC enabling already planned after reboot.</source>
        <translation>Включение МКЦ уже запланировано после перезагрузки.</translation>
    </message>
    <message>
        <source>MIC disabling already planned after reboot.</source>
        <translation>Отключение МКЦ уже запланировано после перезагрузки.</translation>
    </message>
    <message>
        <source>Loading...</source>
        <translation>Загрузка...</translation>
    </message>
    <message>
        <source>Subsystem is &lt;b&gt;enabled&lt;/b&gt;</source>
        <translation>Подсистема &lt;b&gt;включена&lt;/b&gt;</translation>
    </message>
    <message>
        <source>Subsystem is &lt;b&gt;disabled&lt;/b&gt;</source>
        <translation>Подсистема &lt;b&gt;отключена&lt;/b&gt;</translation>
    </message>
    <message>
        <source>Subsystem is disabled, but it will be &lt;b&gt;enabled after reboot&lt;/b&gt;</source>
        <translation>Подсистема отключена, но будет &lt;b&gt;включена после перезагрузки&lt;/b&gt;</translation>
    </message>
    <message>
        <source>Subsystem is enabled, but it will be &lt;b&gt;disabled after reboot&lt;/b&gt;</source>
        <translation>Подсистема включена, но будет &lt;b&gt;отключена после перезагрузки&lt;/b&gt;</translation>
    </message>
</context>
<context>
    <name>Mic::MicFs</name>
    <message>
        <source>Can&apos;t read file %1
%2</source>
        <translation>Не удалось прочитать файл %1
%2</translation>
    </message>
    <message>
        <source>Can&apos;t create temporary file %1
%2</source>
        <translation>Не удалось создать временный файл %1
%2</translation>
    </message>
    <message>
        <source>Can&apos;t write to file %1
%2</source>
        <translation>Не удалось записать в файл %1
%2</translation>
    </message>
    <message>
        <source>Loading filesystem status...</source>
        <translation>Загрузка состояния файловой системы...</translation>
    </message>
    <message>
        <source>Filesystem is &lt;b&gt;protected&lt;/b&gt;</source>
        <translation>Файловая система &lt;b&gt;защищена&lt;/b&gt;</translation>
    </message>
    <message>
        <source>Filesystem is &lt;b&gt;not protected&lt;/b&gt;</source>
        <translation>Файловая система &lt;b&gt;не защищена&lt;/b&gt;</translation>
    </message>
    <message>
        <source>Filesystem is &lt;b&gt;partly protected&lt;/b&gt;&lt;br&gt;&lt;br&gt;Some files have lower integrity than they should be.&lt;br&gt;Run &quot;set-fs-ilev status -v&quot; to see the list of files.</source>
        <translation>Файловая система &lt;b&gt;защищена частично&lt;/b&gt;&lt;br&gt;&lt;br&gt;У некоторых файлов уровень целостности ниже положенного.&lt;br&gt;Выполните &quot;set-fs-ilev status -v&quot;, чтобы увидеть список файлов.</translation>
    </message>
</context>
</TS>

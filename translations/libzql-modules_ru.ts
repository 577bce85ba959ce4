<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ru_RU">
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
</TS>

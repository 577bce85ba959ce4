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
</context>
</TS>

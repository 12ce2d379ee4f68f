#pragma once

#include <QList>
#include <QMap>
#include <QString>

// Interface texts by number, loaded from "./ORV_translate_cn.txt" (Chinese,
// any index but 1) or "./ORV_translate_en.txt" (English, index 1).
class TranslationTable
{
public:
    // Clears the table and reads the file of the language; false when the
    // file cannot be opened (the table then stays empty).
    bool load(int languageIndex);
    // The text of a number; an empty text (entered into the table) when the
    // file had none.
    QString text(int number);
    int currentLanguage() const { return languageIndex; }
    // The numbers present in the table, ascending.
    QList<int> numbers() const { return texts.keys(); }

    // Reads an already opened file's lines into the table (the byte format of
    // the translation files); used by load().
    void readFrom(class QIODevice &device);

private:
    QMap<int, QString> texts;
    int languageIndex = 0;
};

TranslationTable &translationTable();

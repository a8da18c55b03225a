#pragma once

#include "platform/store/HBPredicate.h"

#include <QStringView>

// Recursive-descent reader of predicate format strings; see HBPredicate for
// the language. Arguments replace the %@ placeholders in order.
class HBPredicateParser
{
public:
    HBPredicateParser(QStringView text, const QVariantList &arguments);
    HBPredicate parse();

private:
    HBPredicate parseOr();
    HBPredicate parseAnd();
    HBPredicate parseNot();
    HBPredicate parsePrimary();
    bool parseExpression(HBPredicate::Expression *expression);
    bool parseOperator(HBPredicate::Operator *op, int *options);

    void skipSpace();
    bool atEnd();
    bool acceptSymbol(QStringView symbol);
    bool acceptKeyword(QStringView keyword);
    QStringView peekWord();
    HBPredicate fail(const QString &why);

    QStringView m_text;
    qsizetype m_pos = 0;
    QVariantList m_arguments;
    qsizetype m_nextArgument = 0;
    QString m_error;
};

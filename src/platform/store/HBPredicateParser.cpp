#include "platform/store/HBPredicateParser.h"

#include "platform/store/HBPredicate_p.h"

namespace {

bool isWordChar(QChar c)
{
    return c.isLetterOrNumber() || c == u'_' || c == u'@';
}

} // namespace

HBPredicateParser::HBPredicateParser(QStringView text, const QVariantList &arguments)
    : m_text(text)
    , m_arguments(arguments)
{
}

HBPredicate HBPredicateParser::parse()
{
    HBPredicate result = parseOr();
    if (!m_error.isEmpty())
        return fail(m_error);
    if (!atEnd())
        return fail(QStringLiteral("unexpected text at %1: \"%2\"").arg(m_pos).arg(m_text.mid(m_pos).toString()));
    if (m_nextArgument != m_arguments.size())
        return fail(QStringLiteral("%1 arguments given for %2 placeholders").arg(m_arguments.size()).arg(m_nextArgument));
    return result;
}

HBPredicate HBPredicateParser::fail(const QString &why)
{
    if (m_error.isEmpty())
        m_error = why;
    auto node = std::make_shared<HBPredicate::Node>();
    node->error = m_error;
    return HBPredicate(node);
}

void HBPredicateParser::skipSpace()
{
    while (m_pos < m_text.size() && m_text[m_pos].isSpace())
        ++m_pos;
}

bool HBPredicateParser::atEnd()
{
    skipSpace();
    return m_pos >= m_text.size();
}

bool HBPredicateParser::acceptSymbol(QStringView symbol)
{
    skipSpace();
    if (!m_text.mid(m_pos).startsWith(symbol))
        return false;
    m_pos += symbol.size();
    return true;
}

QStringView HBPredicateParser::peekWord()
{
    skipSpace();
    qsizetype end = m_pos;
    while (end < m_text.size() && isWordChar(m_text[end]))
        ++end;
    return m_text.mid(m_pos, end - m_pos);
}

bool HBPredicateParser::acceptKeyword(QStringView keyword)
{
    if (peekWord().compare(keyword, Qt::CaseInsensitive) != 0)
        return false;
    m_pos += keyword.size();
    return true;
}

HBPredicate HBPredicateParser::parseOr()
{
    QList<HBPredicate> terms{parseAnd()};
    while (m_error.isEmpty() && (acceptSymbol(u"||") || acceptKeyword(u"OR")))
        terms.append(parseAnd());
    return terms.size() == 1 ? terms.first() : HBPredicate::orPredicate(terms);
}

HBPredicate HBPredicateParser::parseAnd()
{
    QList<HBPredicate> terms{parseNot()};
    while (m_error.isEmpty() && (acceptSymbol(u"&&") || acceptKeyword(u"AND")))
        terms.append(parseNot());
    return terms.size() == 1 ? terms.first() : HBPredicate::andPredicate(terms);
}

HBPredicate HBPredicateParser::parseNot()
{
    skipSpace();
    if (m_text.mid(m_pos).startsWith(u"!") && !m_text.mid(m_pos).startsWith(u"!=")) {
        ++m_pos;
        return HBPredicate::notPredicate(parseNot());
    }
    if (acceptKeyword(u"NOT"))
        return HBPredicate::notPredicate(parseNot());
    return parsePrimary();
}

HBPredicate HBPredicateParser::parsePrimary()
{
    if (acceptSymbol(u"(")) {
        HBPredicate inner = parseOr();
        if (!acceptSymbol(u")"))
            return fail(QStringLiteral("missing ) at %1").arg(m_pos));
        return inner;
    }
    if (acceptKeyword(u"TRUEPREDICATE"))
        return HBPredicate::truePredicate();
    if (acceptKeyword(u"FALSEPREDICATE"))
        return HBPredicate::falsePredicate();

    HBPredicate::Expression left, right;
    HBPredicate::Operator op;
    int options = 0;
    if (!parseExpression(&left))
        return fail(QStringLiteral("expected a key path or value at %1").arg(m_pos));
    if (!parseOperator(&op, &options))
        return fail(QStringLiteral("expected an operator at %1").arg(m_pos));
    if (!parseExpression(&right))
        return fail(QStringLiteral("expected a key path or value at %1").arg(m_pos));
    return HBPredicate::comparison(left, op, right, options);
}

bool HBPredicateParser::parseExpression(HBPredicate::Expression *e)
{
    skipSpace();
    if (acceptSymbol(u"%@")) {
        if (m_nextArgument >= m_arguments.size()) {
            m_error = QStringLiteral("too few arguments for the placeholders");
            return false;
        }
        e->constant = m_arguments.at(m_nextArgument++);
        return true;
    }
    if (m_pos < m_text.size() && (m_text[m_pos] == u'"' || m_text[m_pos] == u'\'')) {
        const QChar quote = m_text[m_pos++];
        QString s;
        while (m_pos < m_text.size() && m_text[m_pos] != quote) {
            if (m_text[m_pos] == u'\\' && m_pos + 1 < m_text.size())
                ++m_pos;
            s += m_text[m_pos++];
        }
        if (m_pos >= m_text.size())
            return false;
        ++m_pos;
        e->constant = s;
        return true;
    }
    const QStringView word = peekWord();
    if (word.isEmpty()) {
        if (m_pos < m_text.size() && (m_text[m_pos] == u'-' || m_text[m_pos] == u'.')) {
            qsizetype end = m_pos + 1;
            while (end < m_text.size() && (m_text[end].isDigit() || m_text[end] == u'.'))
                ++end;
            bool ok = false;
            const double v = m_text.mid(m_pos, end - m_pos).toDouble(&ok);
            if (!ok)
                return false;
            m_pos = end;
            e->constant = v;
            return true;
        }
        return false;
    }
    if (word.front().isDigit()) {
        qsizetype end = m_pos;
        while (end < m_text.size() && (m_text[end].isDigit() || m_text[end] == u'.'))
            ++end;
        const QStringView number = m_text.mid(m_pos, end - m_pos);
        m_pos = end;
        bool ok = false;
        const qint64 i = number.toLongLong(&ok);
        e->constant = ok ? QVariant(i) : QVariant(number.toDouble());
        return true;
    }
    if (word.compare(u"nil", Qt::CaseInsensitive) == 0 || word.compare(u"NULL", Qt::CaseInsensitive) == 0) {
        m_pos += word.size();
        e->constant = QVariant();
        return true;
    }
    for (auto [text, value] : {std::pair{u"TRUE", true}, {u"YES", true}, {u"FALSE", false}, {u"NO", false}}) {
        if (word.compare(QStringView(text), Qt::CaseInsensitive) == 0) {
            m_pos += word.size();
            e->constant = value;
            return true;
        }
    }
    // a key path: words joined by dots, with "self" standing for the object
    QStringList parts;
    for (;;) {
        const QStringView part = peekWord();
        if (part.isEmpty())
            return false;
        m_pos += part.size();
        parts << part.toString();
        if (m_pos < m_text.size() && m_text[m_pos] == u'.')
            ++m_pos;
        else
            break;
    }
    if (parts.first().compare(u"self", Qt::CaseInsensitive) == 0)
        parts.removeFirst();
    e->isKeyPath = true;
    e->keyPath = parts.join(u'.');
    return true;
}

bool HBPredicateParser::parseOperator(HBPredicate::Operator *op, int *options)
{
    using Op = HBPredicate::Operator;
    static const std::pair<const char16_t *, Op> symbols[] = {
        {u"==", Op::Equal}, {u"!=", Op::NotEqual}, {u"<>", Op::NotEqual}, {u"<=", Op::LessOrEqual},
        {u"=<", Op::LessOrEqual}, {u">=", Op::GreaterOrEqual}, {u"=>", Op::GreaterOrEqual},
        {u"<", Op::Less}, {u">", Op::Greater}, {u"=", Op::Equal},
    };
    for (const auto &[text, value] : symbols) {
        if (acceptSymbol(QStringView(text))) {
            *op = value;
            return true;
        }
    }
    static const std::pair<const char16_t *, Op> words[] = {
        {u"IN", Op::In}, {u"BEGINSWITH", Op::BeginsWith}, {u"ENDSWITH", Op::EndsWith}, {u"CONTAINS", Op::Contains},
    };
    for (const auto &[text, value] : words) {
        if (!acceptKeyword(QStringView(text)))
            continue;
        *op = value;
        if (m_pos < m_text.size() && m_text[m_pos] == u'[') {
            const qsizetype close = m_text.indexOf(u']', m_pos);
            if (close < 0)
                return false;
            for (QChar flag : m_text.mid(m_pos + 1, close - m_pos - 1)) {
                if (flag.toLower() == u'c')
                    *options |= HBPredicate::CaseInsensitive;
                else if (flag.toLower() == u'd')
                    *options |= HBPredicate::DiacriticInsensitive;
                else
                    return false;
            }
            m_pos = close + 1;
        }
        return true;
    }
    return false;
}

#include "Parser.h"

#include "Lexer.h"

namespace RecordGen {

namespace {

class Parser {
  public:
   Parser(Model& model, std::vector<Token> all) : model_(model), tokens_(std::move(all)) {}

   void run() {
      while (token().kind != Token::Kind::end) {
         if (isWord("namespace"))
            parseNamespace();
         else if (isWord("type"))
            parseType();
         else if (isWord("enum"))
            parseEnum();
         else if (isWord("struct"))
            parseStruct();
         else if (isWord("entity"))
            parseEntity();
         else if (isWord("tree"))
            parseTree();
         else
            fail("expected `namespace`, `type`, `enum`, `struct`, `entity` or `tree`");
      }
   }

  private:
   Token const& token(size_t ahead = 0) const { return tokens_[std::min(next_ + ahead, tokens_.size() - 1)]; }
   Token const& take() {
      Token const& t = token();
      if (next_ + 1 < tokens_.size())
         ++next_;
      return t;
   }
   [[noreturn]] void fail(std::string const& what) const {
      std::string const found =
          token().kind == Token::Kind::end ? "the end of the file" : '`' + token().text + '`';
      throw SchemaError{token().at, what + ", found " + found};
   }
   bool isWord(std::string_view word) const {
      return token().kind == Token::Kind::word && token().text == word;
   }
   bool isMark(std::string_view mark) const {
      return token().kind == Token::Kind::mark && token().text == mark;
   }
   bool takeMark(std::string_view mark) {
      if (!isMark(mark))
         return false;
      take();
      return true;
   }
   bool takeWord(std::string_view word) {
      if (!isWord(word))
         return false;
      take();
      return true;
   }
   // A word that is a keyword only where another word follows, so that it can also be a name.
   bool takeModifier(std::string_view word) { return token(1).kind == Token::Kind::word && takeWord(word); }
   void expectMark(std::string_view mark) {
      if (!takeMark(mark))
         fail("expected `" + std::string(mark) + '`');
   }
   Token const& expectName(std::string const& what) {
      if (token().kind != Token::Kind::word)
         fail("expected " + what);
      return take();
   }
   std::string expectString(std::string const& what) {
      if (token().kind != Token::Kind::string)
         fail("expected " + what + " in double quotes");
      return take().text;
   }
   TypeName expectType() {
      TypeName name{"", token().at};
      name.text = expectName("the name of a type").text;
      while (takeMark("::"))
         name.text += "::" + expectName("the rest of the name behind `::`").text;
      return name;
   }
   Literal expectLiteral() {
      Literal literal{Literal::Kind::none, token().text, token().at};
      switch (token().kind) {
      case Token::Kind::number:
         literal.kind = Literal::Kind::number;
         break;
      case Token::Kind::string:
         literal.kind = Literal::Kind::string;
         break;
      case Token::Kind::word:
         literal.kind = Literal::Kind::word;
         break;
      default:
         fail("expected a value: a number, a string or a name");
      }
      take();
      return literal;
   }
   Literal expectNumber() {
      if (token().kind != Token::Kind::number)
         fail("expected a number");
      return expectLiteral();
   }

   void parseNamespace() {
      expectLineStart();
      take();
      nameSpace_ = expectType().text;
      expectMark(";");
   }

   // The build looks these two up in the files, line by line, to know which headers will be made.
   void expectLineStart() const {
      if (token().at.column != 1)
         throw SchemaError{token().at, '`' + token().text + "` has to stand at the beginning of its line"};
   }

   // Name and meaning of what is declared behind the keyword.
   template <class Declared>
   void parseHead(Declared& declared) {
      declared.meaning = take().meaning;
      declared.at = token().at;
      declared.name = expectName("a name").text;
      declared.nameSpace = nameSpace_;
      if (nameSpace_.empty())
         throw SchemaError{declared.at, '`' + declared.name + "` stands in no namespace"};
   }

   void parseType() {
      ValueType type;
      parseHead(type);
      type.isNumber = true;
      expectMark(":");
      type.baseName = expectType();
      if (takeWord("in")) {
         type.minText = expectNumber();
         expectMark("..");
         type.maxText = expectNumber();
      }
      if (takeMark("="))
         type.initial = expectNumber();
      expectMark(";");
      model_.types.push_back(std::make_unique<ValueType>(std::move(type)));
   }

   void parseEnum() {
      ValueType type;
      parseHead(type);
      type.kind = Kind::enumeration;
      expectMark(":");
      type.baseName = expectType();
      type.isOpen = takeWord("open");
      expectMark("{");
      while (!takeMark("}")) {
         Enumerator e;
         e.meaning = token().meaning;
         e.at = token().at;
         e.name = expectName("the name of an enumerator, or `}`").text;
         expectMark("=");
         Literal const number = expectNumber();
         try {
            size_t used = 0;
            e.number = std::stoull(number.text, &used, 0);
            if (used != number.text.size() || number.text[0] == '-')
               throw std::out_of_range("");
         } catch (std::logic_error const&) {
            throw SchemaError{number.at, '`' + number.text + "` is no number that an enumerator can have"};
         }
         expectMark(";");
         type.enumerators.push_back(std::move(e));
      }
      model_.types.push_back(std::make_unique<ValueType>(std::move(type)));
   }

   void parseStruct() {
      ValueType type;
      parseHead(type);
      type.kind = Kind::record;
      if (takeWord("joined"))
         type.joint = expectString("what joins the fields");
      expectMark("{");
      while (!takeMark("}")) {
         Field f;
         f.meaning = token().meaning;
         f.isKey = takeModifier("key");
         f.at = token().at;
         f.name = expectName("the name of a field, or `}`").text;
         expectMark(":");
         f.typeName = expectType();
         if (takeMark("="))
            f.initial = expectLiteral();
         if (takeWord("nonzero")) {
            if (!takeWord("while"))
               fail("expected `while`");
            f.whileName.at = token().at;
            f.whileName.text = expectName("the field that forbids 0 here").text;
            expectMark("=");
            f.whileValue = expectLiteral();
         }
         expectMark(";");
         type.fields.push_back(std::move(f));
      }
      model_.types.push_back(std::make_unique<ValueType>(std::move(type)));
   }

   void parseEntity() {
      expectLineStart();
      auto entity = std::make_unique<Entity>();
      parseHead(*entity);
      if (takeMark(":"))
         entity->baseName = expectType();
      expectMark("{");
      while (!takeMark("}")) {
         if (isWord("computed") && token(1).kind == Token::Kind::word)
            entity->computed.push_back(parseComputed());
         else if (isWord("local") && token(1).kind == Token::Kind::word)
            entity->locals.push_back(parseLocal());
         else
            entity->own.push_back(parseAttribute());
      }
      model_.entities.push_back(std::move(entity));
   }

   Computed parseComputed() {
      Computed c;
      c.meaning = take().meaning;
      c.at = token().at;
      c.name = expectName("a name").text;
      expectMark(":");
      c.valueName = expectType();
      expectMark("=");
      c.from = {"", token().at};
      c.from.text = expectName("the attribute that it is computed from").text;
      if (!takeWord("less"))
         fail("expected `less`");
      c.less = expectNumber();
      if (takeWord("unit"))
         c.unit = expectString("the unit");
      expectMark(";");
      return c;
   }

   Local parseLocal() {
      Local l;
      l.meaning = take().meaning;
      l.at = token().at;
      l.name = expectName("a name").text;
      expectMark(";");
      return l;
   }

   Attribute parseAttribute() {
      Attribute a;
      a.meaning = token().meaning;
      a.isKey = takeModifier("key");
      a.isInput = !a.isKey && takeModifier("input");
      a.isInitial = !a.isKey && !a.isInput && takeModifier("initial");
      a.isCounter = !a.isReadOnly() && !a.isInitial && takeModifier("counter");
      a.isOrdered = takeModifier("ordered");
      a.at = token().at;
      a.name = expectName("the name of an attribute, or `}`").text;
      expectMark(":");
      if (takeModifier("map"))
         a.form = Form::map;
      else if (takeModifier("children"))
         a.form = Form::children;
      else if (takeModifier("refs"))
         a.form = Form::references;
      else if (takeModifier("ref"))
         a.form = Form::reference;
      TypeName const first = expectType();
      if (a.isCollection()) {
         a.keyName = first;
         expectMark("->");
         a.valueName = expectType();
      } else {
         a.valueName = first;
      }
      if (takeMark("="))
         a.initial = expectLiteral();
      if (takeWord("unless")) {
         a.unlessName.at = token().at;
         a.unlessName.text = expectName("the attribute that overrules this one").text;
         expectMark("=");
         a.unlessValue = expectLiteral();
      }
      a.isMulticast = takeWord("multicast");
      if (takeWord("apart")) {
         a.apartName.at = token().at;
         a.apartName.text = expectName("the collection that has none of these keys").text;
      }
      if (takeWord("unit"))
         a.unit = expectString("the unit");
      expectMark(";");
      return a;
   }

   void parseTree() {
      take();
      expectMark("{");
      while (!takeMark("}")) {
         Place p;
         p.meaning = token().meaning;
         p.isCell = takeWord("cell");
         p.at = token().at;
         p.path = expectString("a path, or `}`,");
         expectMark(":");
         p.typeName = expectType();
         expectMark(";");
         model_.places.push_back(std::move(p));
      }
   }

   Model& model_;
   std::vector<Token> tokens_;
   size_t next_ = 0;
   std::string nameSpace_;
};

} // namespace

void parse(Model& model, std::string const& file, std::string_view text) {
   model.files.push_back(file);
   Parser(model, tokens(file, text)).run();
}

} // namespace RecordGen

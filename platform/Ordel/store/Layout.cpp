#include "Ordel/store/Layout.h"
#include "Kem/Assert.h"

namespace Ordel {

using Records::Form;

namespace {

constexpr std::string_view emptyString("\0", 1); // wire form

Records::ValueType const selectorType{"selector",
                                      Records::Kind::string,
                                      0,
                                      0,
                                      0,
                                      nullptr,
                                      {},
                                      {},
                                      0,
                                      emptyString,
                                      "Selector of an entity, or nothing."};

} // namespace

Codec const& Codecs::codec(Records::ValueType const& type, Codec::Use use) {
   auto& codec = codecs_[{&type, use}];
   if (!codec)
      codec = std::make_unique<Codec>(type, use);
   return *codec;
}

Codec const& Codecs::selector() {
   return codec(selectorType, Codec::Use::selector);
}

Layout::Layout(Records::EntityType const& entityType, Codecs& codecs) : type(entityType) {
   slots.reserve(type.attributes.size());
   for (size_t i = 0; i < type.attributes.size(); ++i) {
      Records::Attribute const& attribute = type.attributes[i];
      Slot slot{};
      slot.attribute = &attribute;
      slot.form = attribute.form;
      slot.isInput = attribute.isInput;
      slot.isKey = type.keyAttribute == static_cast<int>(i);
      slot.isMulticast = attribute.isMulticast;
      slot.apart = attribute.apart;
      slot.offset = static_cast<uint32_t>(initialBlock.size());
      switch (attribute.form) {
      case Form::scalar:
         slot.value = &codecs.codec(*attribute.value, Codec::Use::value);
         slot.zero = attribute.initial;
         break;
      case Form::reference:
         slot.value = &codecs.selector();
         slot.zero = emptyString;
         break;
      case Form::map:
         slot.key = &codecs.codec(*attribute.key, Codec::Use::key);
         slot.value = &codecs.codec(*attribute.value, Codec::Use::value);
         slot.zero = attribute.value->zero;
         break;
      case Form::references:
         slot.key = &codecs.codec(*attribute.key, Codec::Use::key);
         slot.value = &codecs.selector();
         slot.zero = emptyString;
         break;
      case Form::children:
         slot.key = &codecs.codec(*attribute.key, Codec::Use::key);
         break;
      }
      if (slot.isSingle() && !slot.value->isText()) {
         Wire::Reader in(attribute.initial);
         Packed initial;
         KEM_ASSERT(slot.value->read(in, initial) && in.done());
         initialBlock.append(initial.view());
      } else {
         initialBlock.append(8, '\0');
      }
      if (slot.isCollection())
         slot.shape = {slot.key->size(), slot.key->isText(),
                       slot.value ? slot.value->size() : static_cast<uint8_t>(sizeof(Entity*)),
                       slot.value && slot.value->isText()};
      slots.push_back(slot);
   }
}

} // namespace Ordel

// The private and protected fields of a class, for a test that looks at what nothing public shows.
#pragma once

// Makes `object.*memberOf(Class_field{})` the field. Stands in any namespace that knows the class
// by a name of one word. It works since an explicit instantiation may name what is private.
#define KELP_EXPOSE(Class, field)                                              \
  struct Class##_##field {                                                     \
    friend constexpr auto memberOf(Class##_##field /*tag*/);                   \
  };                                                                           \
  template <auto Member>                                                       \
  struct Expose##Class##_##field {                                             \
    friend constexpr auto memberOf(Class##_##field /*tag*/) { return Member; } \
  };                                                                           \
  template struct Expose##Class##_##field<&Class::field>;

/* The FRU library: the identity areas of field-replaceable units.
 *
 * An area consists of text fields at fixed offsets, each of at most 31 characters and a NUL. */
#pragma once

/* Offsets within a board area; none is aligned. */
enum { FRU_BOARD_MANUFACTURER = 7, FRU_BOARD_PRODUCT_NAME = 39, FRU_BOARD_SERIAL = 71, FRU_BOARD_AREA_SIZE = 168 };

/* Offsets within a product area. */
enum { FRU_PRODUCT_SERIAL = 132, FRU_PRODUCT_AREA_SIZE = 256 };

enum {
  FRU_TEXT_SIZE = 32,        /* of every text above, in octets, with its NUL */
  FRU_ID_BOARD = 0,          /* the motherboard */
  FRU_TYPE_POWER_SUPPLY = 10 /* instances count from 1 */
};

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Fills `area`, FRU_BOARD_AREA_SIZE octets, which the caller has zeroed. Returns 0, or nonzero if there is no such FRU
 * or the service cannot be reached; `area` is then undefined. */
int get_fru_board_area_from_id(int fru_id, void *area);

/* Does the same with the product area of an instance, from 1, of a type: FRU_PRODUCT_AREA_SIZE octets. */
int get_fru_product_area_from_type_instance(int type, int instance, void *area);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

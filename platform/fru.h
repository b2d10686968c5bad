/* The FRU library: the identity areas that field-replaceable units carry.
 *
 * An area is a block of fixed text fields, each of at most 31 characters and a NUL. */
#pragma once

/* Offsets within a board area. Nothing is aligned. */
enum { FRU_BOARD_MANUFACTURER = 7, FRU_BOARD_PRODUCT_NAME = 39, FRU_BOARD_SERIAL = 71, FRU_BOARD_AREA_SIZE = 168 };

/* Offsets within a product area. */
enum { FRU_PRODUCT_SERIAL = 132, FRU_PRODUCT_AREA_SIZE = 256 };

enum {
  FRU_TEXT_SIZE = 32,        /* of every text above, in octets; the last is the NUL's */
  FRU_ID_BOARD = 0,          /* the motherboard */
  FRU_TYPE_POWER_SUPPLY = 10 /* instances count from 1 */
};

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Fills `area`, FRU_BOARD_AREA_SIZE octets that the caller has zeroed. 0 on success; otherwise nonzero (no such FRU, or
 * the service cannot be reached) and the area does not count. */
int get_fru_board_area_from_id(int fru_id, void *area);

/* Fills `area`, FRU_PRODUCT_AREA_SIZE octets that the caller has zeroed. 0 on success; otherwise nonzero. */
int get_fru_product_area_from_type_instance(int type, int instance, void *area);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

-- Functions of Kova. All but kova_version give the same on every machine with the same data, so that
-- they are immutable, can be indexed, and are sent to other servers by postgres_fdw.
\echo Use "CREATE EXTENSION kova" to load this file. \quit

CREATE FUNCTION kova_key(value text, locale text) RETURNS bytea
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 5;
COMMENT ON FUNCTION kova_key(text, text) IS
    'bytes whose order is the order of the texts in the locale: for ORDER BY, indexes and joins';

CREATE FUNCTION kova_compare(a text, b text, locale text) RETURNS integer
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 3;
COMMENT ON FUNCTION kova_compare(text, text, text) IS
    '-1, 0 or 1: the first text comes earlier, is the same to the locale, or comes later';

CREATE FUNCTION kova_upper(value text, locale text) RETURNS text
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 3;
COMMENT ON FUNCTION kova_upper(text, text) IS 'the text in upper case';

CREATE FUNCTION kova_lower(value text, locale text) RETURNS text
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 3;
COMMENT ON FUNCTION kova_lower(text, text) IS 'the text in lower case';

CREATE FUNCTION kova_convert(value bytea, source text, target text) RETURNS bytea
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 20;
COMMENT ON FUNCTION kova_convert(bytea, text, text) IS
    'a text in one code set as the same text in another';

CREATE FUNCTION kova_number(value numeric, format text, locale text) RETURNS text
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 20;
COMMENT ON FUNCTION kova_number(numeric, text, text) IS
    'a number by a format such as %''.2f, with the locale''s groups and decimal symbol';

CREATE FUNCTION kova_money(value numeric, format text, locale text) RETURNS text
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 20;
COMMENT ON FUNCTION kova_money(numeric, text, text) IS
    'an amount by a format such as %n, or %i for the international currency symbol';

CREATE FUNCTION kova_date(value timestamp, format text, locale text) RETURNS text
    AS 'MODULE_PATHNAME' LANGUAGE C IMMUTABLE STRICT PARALLEL SAFE COST 20;
COMMENT ON FUNCTION kova_date(timestamp, text, text) IS
    'a date and time by a format such as %c or %A, in the locale''s calendar';

-- What this server has: not immutable, so that postgres_fdw does not ask another one.
CREATE FUNCTION kova_version(locale text) RETURNS text
    AS 'MODULE_PATHNAME' LANGUAGE C STABLE STRICT PARALLEL SAFE COST 3;
COMMENT ON FUNCTION kova_version(text) IS
    'the version of the locale''s order in this server''s data, to be compared only';

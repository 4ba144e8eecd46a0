#include "veskd/template_records.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "veskd/dates.h"

namespace veskd {

std::string increment_text(std::int64_t increment) {
  return fmt::format("{:06X}", increment);
}

namespace {

// Of a query for id, constant, num_generated, next_increment, first_unserved and removed_date.
Template template_in(const Query &query) {
  return {query.number(0), query.text(1), query.number(2), query.number(3), query.number(4), !query.is_null(5)};
}

}  // namespace

std::optional<Template> find_template(StoreConnection &store, std::string_view constant) {
  Query query(store.database,
              "SELECT id, constant, num_generated, next_increment, first_unserved, removed_date FROM templates "
              "WHERE constant = ?1",
              constant);
  if (!query.next()) return std::nullopt;
  return template_in(query);
}

std::vector<Template> list_templates(StoreConnection &store, std::int64_t max_count) {
  Query query(store.database,
              "SELECT id, constant, num_generated, next_increment, first_unserved, removed_date FROM templates "
              "WHERE removed_date IS NULL ORDER BY constant LIMIT ?1",
              max_count);
  std::vector<Template> templates;
  while (query.next()) templates.push_back(template_in(query));
  return templates;
}

Template create_template(StoreConnection &store, std::string_view constant) {
  Query(store.database,
        "INSERT INTO templates (constant, num_generated, next_increment, first_unserved) VALUES (?1, 0, 0, 0)",
        constant)
      .run();
  return find_template(store, constant).value();
}

// Names of increments sort as their numbers do; what sorts between them without being one of them does not count.
bool has_collision(StoreConnection &store, const Template &family, std::int64_t count) {
  const std::string first = family.constant + increment_text(family.num_generated);
  const std::string last = family.constant + increment_text(family.num_generated + count - 1);
  return Query(store.database,
               "SELECT 1 FROM (SELECT name FROM keys WHERE name BETWEEN ?1 AND ?2 "
               "UNION ALL SELECT name FROM deleted_keys WHERE name BETWEEN ?1 AND ?2) AS taken "
               "WHERE length(name) = length(?1) AND rtrim(substr(name, CAST(?3 AS INTEGER)), '0123456789ABCDEF') = ''",
               first, last, static_cast<std::int64_t>(kConstantLength + 1))
      .next();
}

void generate_keys(StoreConnection &store, const Template &family, std::int64_t count, const KeyPolicy &policy) {
  const std::int64_t end = family.num_generated + count;
  for (std::int64_t increment = family.num_generated; increment < end; ++increment)
    create_key(store, family.constant + increment_text(increment), policy, {family.id, increment});
  Query(store.database, "UPDATE templates SET num_generated = ?1 WHERE id = ?2", end, family.id).run();
}

std::optional<NextKey> find_next_key(StoreConnection &store, const Template &family) {
  Query query(store.database,
              "SELECT name, increment FROM keys WHERE template = ?1 AND increment >= ?2 ORDER BY increment LIMIT 1",
              family.id, family.next_increment);
  if (!query.next()) return std::nullopt;
  return NextKey{query.text(0), query.number(1)};
}

void mark_served(StoreConnection &store, const Template &family, std::int64_t increment) {
  Query(store.database, "UPDATE keys SET served_date = ?1 WHERE template = ?2 AND increment = ?3", today(), family.id,
        increment)
      .run();
  Query(store.database, "UPDATE templates SET next_increment = ?1, first_unserved = ?1 WHERE id = ?2", increment + 1,
        family.id)
      .run();
}

void set_next_increment(StoreConnection &store, const Template &family, std::int64_t increment) {
  Query(store.database, "UPDATE templates SET next_increment = ?1 WHERE id = ?2", increment, family.id).run();
}

namespace {

void move_on(StoreConnection &store, const Template &family, std::int64_t increment) {
  Query(store.database,
        "UPDATE templates SET next_increment = ?1, first_unserved = ?1, num_generated = ?2 WHERE id = ?3", increment,
        std::max(increment, family.num_generated), family.id)
      .run();
  Query(store.database,
        "UPDATE keys SET served_date = ?1 WHERE template = ?2 AND increment < ?3 AND served_date IS NULL", today(),
        family.id, increment)
      .run();
}

std::vector<std::string> constants(StoreConnection &store) {
  Query query(store.database, "SELECT constant FROM templates WHERE removed_date IS NULL");
  std::vector<std::string> all;
  while (query.next()) all.push_back(query.text(0));
  return all;
}

}  // namespace

void skip_increments(StoreConnection &store, const std::optional<std::int64_t> &count) {
  if (count == 0) return;
  for (const std::string &constant : constants(store)) {
    const Template family = find_template(store, constant).value();
    const std::int64_t increment =
        count ? family.next_increment + std::min(*count, kMaxIncrements) : family.num_generated;
    move_on(store, family, std::min(increment, kMaxIncrements));
  }
}

bool is_removable(StoreConnection &store, const Template &family) {
  return !Query(store.database, "SELECT 1 FROM keys WHERE template = ?1 AND served_date IS NULL AND deletable = 'N'",
                family.id)
              .next();
}

void remove_template(StoreConnection &store, const Template &family, std::string_view removed_by) {
  Query(store.database,
        "INSERT INTO deleted_keys SELECT name, current_instance, ?2, ?3 FROM keys "
        "WHERE template = ?1 AND served_date IS NULL",
        family.id, timestamp(), removed_by)
      .run();
  Query(store.database, "DELETE FROM keys WHERE template = ?1 AND served_date IS NULL", family.id).run();
  Query(store.database, "UPDATE templates SET removed_date = ?1 WHERE id = ?2", today(), family.id).run();
}

}  // namespace veskd

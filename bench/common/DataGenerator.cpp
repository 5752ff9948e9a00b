#include "common/DataGenerator.h"

#include "store/StoredNotes.h"

#include <array>
#include <random>
#include <string_view>

namespace fiva::bench {

namespace {

using Words = std::initializer_list<std::string_view>;

constexpr std::array<std::string_view, 12> parents = {"Travail",       "Maison",   "Santé",   "Finances",
                                                      "Voyages",       "Cuisine",  "Études",  "Loisirs",
                                                      "Administratif", "Véhicule", "Enfants", "Musique"};

constexpr std::array<std::string_view, 8> children = {"Projets",  "Archives", "À faire",  "Références",
                                                      "Factures", "Idées",    "Contrats", "Photos"};

constexpr std::array<std::string_view, 16> subjects = {
    "Facture d'électricité",   "Recette de la tarte aux poires",
    "Réunion d'équipe",        "Déclaration d'impôts",
    "Itinéraire à vélo",       "Contrat de location",
    "Ordonnance du médecin",   "Cours de théorie musicale",
    "Révision de la voiture",  "Inscription à l'école",
    "Relevé bancaire",         "Billets de train",
    "Mémoire de fin d'études", "Garantie du réfrigérateur",
    "Programme du festival",   "Devis des travaux"};

constexpr std::array<std::string_view, 12> qualifiers = {"janvier", "février",    "été",       "hiver",
                                                         "préparé", "à vérifier", "brouillon", "définitif",
                                                         "reçu",    "envoyé",     "urgent",    "complété"};

constexpr std::array<std::string_view, 14> sentences = {
    "Penser à vérifier les échéances avant la fin du mois.",
    "Le rendez-vous a été déplacé à jeudi après-midi.",
    "Voir aussi la page « Questions fréquentes » du site.",
    "Montant réglé par virement, référence notée ci-dessous.",
    "À relire avec François avant l'envoi définitif.",
    "Les pièces jointes contiennent les scans des originaux.",
    "Prévoir 2 h 30 de trajet & réserver l'hôtel à l'avance.",
    "Résumé : tout est prêt, il ne reste que la signature.",
    "Numéro de dossier : 2023/ABX-774 (garder précieusement).",
    "Ne pas oublier le code d'accès à l'entrée du bâtiment.",
    "Étape suivante : comparer les trois devis reçus.",
    "Très bonne adresse, recommandée par Zoé et Benoît.",
    "Mise à jour après l'appel du service client.",
    "Chiffres clés : 1 250 € de budget, 15 % d'acompte.",
};

constexpr std::array<std::string_view, 8> hosts = {
    "www.service-public.fr", "fr.wikipedia.org", "www.marmiton.org", "www.sncf-connect.com",
    "www.impots.gouv.fr",    "github.com",       "www.ameli.fr",     "www.lemonde.fr"};

constexpr std::array<std::string_view, 6> extensions = {".pdf", ".docx", ".jpg", ".odt", ".xlsx", ".png"};

QString text(std::string_view s)
{
    return QString::fromUtf8(s.data(), qsizetype(s.size()));
}

// File-system-friendly form of a title: no spaces or apostrophes, accents kept.
QString slug(QString title)
{
    title.replace(u' ', u'-');
    title.replace(u'\'', u'-');
    return title;
}

class Generator
{
public:
    explicit Generator(std::uint32_t seed) : m_random(seed) {}

    template <class Array> const auto &pick(const Array &array)
    {
        return array[std::uniform_int_distribution<std::size_t>(0, array.size() - 1)(m_random)];
    }
    int between(int low, int high) { return std::uniform_int_distribution<int>(low, high)(m_random); }
    bool chance(double p) { return std::bernoulli_distribution(p)(m_random); }

    // Version-4 UUIDs drawn from the seeded generator, so that a seed always gives the same ids.
    QUuid uuid()
    {
        std::array<char, 16> bytes;
        for (std::size_t i = 0; i < bytes.size(); i += 4) {
            const std::uint32_t word = m_random();
            for (std::size_t k = 0; k < 4; ++k)
                bytes[i + k] = char(word >> (8 * k));
        }
        bytes[6] = char((bytes[6] & 0x0F) | 0x40);
        bytes[8] = char((bytes[8] & 0x3F) | 0x80);
        return QUuid::fromRfc4122(QByteArrayView(bytes.data(), 16));
    }

    // Creation dates between 2016 and the end of 2024, with the sub-second part real clocks give.
    Timestamp date()
    {
        return Timestamp{std::uniform_real_distribution<double>(473385600.0, 757382399.0)(m_random)};
    }

    QString notes()
    {
        QString result;
        const int lines = between(1, 6);
        for (int i = 0; i < lines; ++i) {
            if (i > 0)
                result += u'\n';
            result += text(pick(sentences));
            if (chance(0.4))
                result += u' ' + text(pick(sentences));
        }
        return notesHTML(result);
    }

private:
    std::mt19937 m_random;
};

} // namespace

SavedData generateSavedData(int itemCount, std::uint32_t seed)
{
    Generator g(seed);
    SavedData data;

    for (std::string_view parent : parents) {
        data.categories.append(text(parent));
        const int subCount = g.between(1, 4);
        for (int i = 0; i < subCount; ++i) {
            const QString child = text(parent) + QStringLiteral(" / ") + text(g.pick(children));
            if (!data.categories.contains(child))
                data.categories.append(child);
        }
    }
    data.categories.append(QStringLiteral("Sans catégorie"));

    const QString home = QStringLiteral("/home/utilisateur");
    const QString attachmentsFolder = home + QStringLiteral("/.local/share/Fiva_Attachments/");
    data.items.reserve(itemCount);
    for (int n = 0; n < itemCount; ++n) {
        LinkItem item;
        item.id = g.uuid();
        const QString subject = text(g.pick(subjects));
        item.title = subject + QStringLiteral(" — ") + text(g.pick(qualifiers)) + u' ' +
                     QString::number(g.between(2015, 2025)) + QStringLiteral(" n°") + QString::number(n);
        item.category = g.pick(data.categories);

        const int kind = g.between(0, 99);
        if (kind < 50) {
            item.kind = LinkKind::url;
            item.path = QStringLiteral("https://") + text(g.pick(hosts)) + QStringLiteral("/articles/") +
                        QString::number(g.between(1000, 99999)) + u'/' + slug(subject).toLower() +
                        QStringLiteral("?source=fiva&ref=") + QString::number(n);
        } else if (kind < 85) {
            item.kind = LinkKind::file;
            item.path = home + QStringLiteral("/Documents/") + item.category.section(u' ', 0, 0) + u'/' +
                        slug(subject) + u'-' + QString::number(n) + text(g.pick(extensions));
        } else {
            item.kind = LinkKind::directory;
            item.path = home + QStringLiteral("/Projets/") + item.category.section(u' ', 0, 0) + u'/' +
                        slug(subject) + u'-' + QString::number(n);
        }

        if (g.chance(0.85))
            item.notes = g.notes();
        item.createdAt = g.date();
        item.isFavorite = g.chance(0.1);
        if (g.chance(0.3)) {
            const int count = g.between(1, 3);
            for (int a = 0; a < count; ++a) {
                const QString fileName = QStringLiteral("Scan ") + subject + u' ' + QString::number(a + 1) +
                                         text(g.pick(extensions));
                item.attachments.append(
                    Attachment{g.uuid(), fileName, attachmentsFolder + QString::number(n) + u'-' + fileName});
            }
        }
        data.items.append(std::move(item));
    }
    data.lastBackupDate = Timestamp{757382400.0 + 0.1 + 0.2};
    return data;
}

} // namespace fiva::bench
